#pragma once
// A download task: fetches one URL through a download manager, appends the
// text it received to a local file, runs its kind's hook and deletes itself.
#include <QObject>
#include <QString>

namespace Download {
class CDownloadManager;
}

class CBaseDownload : public QObject {
    Q_OBJECT
public:
    CBaseDownload(Download::CDownloadManager& manager, QString const& url, QString const& path);

    // Starts the download with the manager's proxy and cookie jar.
    void Download();
    // True for this task's own manager and URL.
    bool Check(Download::CDownloadManager const& manager, QString const& url) const;

protected:
    // Called once the file is written, before the task deletes itself.
    virtual void OnDownloadFinished(Download::CDownloadManager const& manager, QString const& url,
                                    QString const& path) = 0;

private slots:
    void SlotDownloadFinished(Download::CDownloadManager const& manager, QString const& url);

private:
    Download::CDownloadManager* manager;
    QString url;
    QString path;
};
