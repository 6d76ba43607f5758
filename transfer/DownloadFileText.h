#pragma once
// The plain text download task: the file is all it produces.
#include "transfer/BaseDownload.h"

class CDownloadFileText : public CBaseDownload {
    Q_OBJECT
public:
    using CBaseDownload::CBaseDownload;

protected:
    void OnDownloadFinished(Download::CDownloadManager const&, QString const&,
                            QString const&) override
    {
    }
};

// The task of a kind (0: text file), or null for any other kind. The task
// deletes itself once done; the caller owns nothing.
CBaseDownload* GetDownload(Download::CDownloadManager& manager, QString const& url,
                           QString const& path, int kind);
