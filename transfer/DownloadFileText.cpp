#include "transfer/DownloadFileText.h"

CBaseDownload* GetDownload(Download::CDownloadManager& manager, QString const& url,
                           QString const& path, int kind)
{
    if (kind == 0)
        return new CDownloadFileText(manager, url, path);
    return nullptr;
}
