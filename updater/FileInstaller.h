#pragma once
// Puts one file into a folder the way the updater promises: the file that is
// replaced is kept in the backup folder first, the new content is written
// under a temporary name beside its destination and renamed over it, so a
// destination holds either the old file or the complete new one, never a
// half-written file, and every replaced file can be got back.
//
// Backups go to <backup folder>/<run>/<absolute destination path>, where the
// run folder is made once per installer (time and process id); a file
// replaced twice in one run is kept under <run>/<n>/... the second time.
#include <QString>

class CUpdaterLog;

class CFileInstaller {
public:
    // log may be null.
    CFileInstaller(QString backupFolder, CUpdaterLog* log);

    // Copies source into folder under source's file name. With createFolder
    // the folder is made when missing (the configuration copy); otherwise a
    // missing folder is an error. Returns 0 or the errno of the step that
    // failed, after undoing that step: nothing changes in folder on failure.
    int install(const QString& source, const QString& folder, bool createFolder);

    // Where the replaced files of this run go.
    QString runFolder() const;
    // The backup made by the last install(), empty if it replaced nothing.
    QString lastBackup() const;

private:
    int backUp(const QString& destination, QString* backup);
    QString freeBackupPath(const QString& destination) const;

    QString backupFolder_;
    QString runFolder_;
    QString lastBackup_;
    CUpdaterLog* log_;
    int temporaryCounter_ = 0;
};
