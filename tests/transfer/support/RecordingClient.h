#pragma once
// Stands where the update dialog will stand: records every call the HTTP file
// client makes on its owner. ClientOn puts one file client with such an owner
// on a scripted server.
#include <ostream>

#include <QPair>
#include <QString>
#include <QTemporaryDir>
#include <QVector>

#include "module/DownloadModule.h"
#include "FaultServer.h"
#include "WaitFor.h"
#include "tests/support/TestHost.h"
#include "transfer/DownloadHttp.h"
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

// A file client on a scripted server (or on base), with its host (whose proxy
// settings it reads), owner and download folder.
struct ClientOn {
    explicit ClientOn(QList<ScriptedReply> script, const QString& base = QString())
        : server(std::move(script)),
          http(&client, base.isEmpty() ? QStringLiteral("http://127.0.0.1:%1/Win32").arg(server.port()) : base)
    {
        http.setRetryIntervalForTest(30);
    }
    // Starts a fetch or (with probe) a size probe and waits for its completion.
    bool fetch(const char* name, int kind = CDownloadHttp::KindDownloadModule, int param = 0, bool probe = false)
    {
        const int before = client.completions();
        if (probe)
            http.getFileSize(QString::fromLatin1(name));
        else
            http.getFile(QString::fromLatin1(name), dir.path(), param, kind, 0, true);
        return waitFor([&] { return client.completions() > before; });
    }
    QString local(const char* name) const { return dir.filePath(QLatin1String(name)); }

    TestHost host;
    RecordingClient client;
    QTemporaryDir dir;
    FaultServer server;
    CDownloadHttp http;
};

// Status-bar messages print readably in assertion messages.
inline void PrintTo(const QPair<QString, int>& message, std::ostream* os)
{
    *os << '"' << message.first.toStdString() << "\" for " << message.second << " ms";
}
