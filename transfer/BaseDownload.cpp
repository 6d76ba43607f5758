#include "transfer/BaseDownload.h"

#include <fstream>

#include "transfer/DownloadManager.h"

CBaseDownload::CBaseDownload(Download::CDownloadManager& manager_, QString const& url_,
                             QString const& path_)
    : QObject(&manager_), manager(&manager_), url(url_), path(path_)
{
}

void CBaseDownload::Download()
{
    connect(manager, &Download::CDownloadManager::SignalDownloadFinished, this,
            &CBaseDownload::SlotDownloadFinished, Qt::UniqueConnection);
    manager->Download(url, true, true, nullptr);
}

bool CBaseDownload::Check(Download::CDownloadManager const& manager_, QString const& url_) const
{
    return &manager_ == manager && url_ == url;
}

void CBaseDownload::SlotDownloadFinished(Download::CDownloadManager const& manager_,
                                         QString const& url_)
{
    // Other tasks share the manager: only this task's URL counts.
    if (!Check(manager_, url_))
        return;
    if (!path.isEmpty()) {
        // The task is for text: the data ends at its first zero byte, and is
        // added after what the file already holds.
        std::ofstream out(path.toLocal8Bit().toStdString(), std::ios::out | std::ios::app);
        if (out) {
            const QByteArray data = manager->GetData(url);
            out << data.constData();
            out.flush();
        }
    }
    OnDownloadFinished(manager_, url_, path);
    disconnect(manager, &Download::CDownloadManager::SignalDownloadFinished, this,
               &CBaseDownload::SlotDownloadFinished);
    deleteLater();
}
