#pragma once
// Stands where the update dialog will stand: records every call the HTTP file
// client makes on its owner.
#include <ostream>

#include <QPair>
#include <QString>
#include <QVector>

#include "module/DownloadModule.h"
#include "transfer/DownloadHttpClient.h"

struct ClientCall {
    QString name;
    QString file;
    long number = 0;  // param, size or the not-found flag
};

class RecordingClient : public IDownloadHttpClient {
public:
    bool offline = false;
    bool window = true;
    QVector<ClientCall> calls;  // completions and getSizeFile, in order
    QVector<QPair<QString, int>> statusMessages;
    QVector<long> bytesOnDisk;
    QVector<int> progress;

    int completions() const { return calls.size(); }

    bool isOffLine() override { return offline; }
    // The dialog's answer: the module object asks its host (3516).
    void getProxyData(mwiProxyState& state) override
    {
        if (CDownloadModule* module = GetModule<CDownloadModule>())
            module->GetProxyData(state);
    }
    bool hasWindow() override { return window; }
    void showStatusMessage(const QString& text, int timeoutMs) override { statusMessages.append({text, timeoutMs}); }
    void addBytesOnDisk(long bytes) override { bytesOnDisk.append(bytes); }
    void setProgress(int bytesRead) override { progress.append(bytesRead); }
    void getSizeFile(long size) override { record("getSizeFile", QString(), size); }
    void parseFileTxt(QString file, int param) override { record("parseFileTxt", file, param); }
    void parseFileTxt1(QString file, int param) override { record("parseFileTxt1", file, param); }
    void parseFileTxt2(QString file, int param) override { record("parseFileTxt2", file, param); }
    void downloadModule(QString file, bool notFound) override { record("downloadModule", file, notFound); }
    void getNewModule(QString file) override { record("getNewModule", file, 0); }
    void autoDownloadConfig(QString file) override { record("autoDownloadConfig", file, 0); }
    void autoDownloadConfigDescr(QString file, int param) override { record("autoDownloadConfigDescr", file, param); }

private:
    void record(const char* name, const QString& file, long number)
    {
        calls.append({QString::fromLatin1(name), file, number});
    }
};

// Status-bar messages print readably in assertion messages.
inline void PrintTo(const QPair<QString, int>& message, std::ostream* os)
{
    *os << '"' << message.first.toStdString() << "\" for " << message.second << " ms";
}
