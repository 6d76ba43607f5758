#pragma once
// What the HTTP file client needs from its owner, the update workflow: the
// off-line switch, the host's proxy settings, progress and status-bar output,
// and one completion call per request kind. The workflow implements it;
// tests plug in a recording one. Every call arrives on the GUI thread.
#include <QString>

#include "protocol/HostRecords.h"

class IDownloadHttpClient {
public:
    virtual ~IDownloadHttpClient() = default;

    virtual bool isOffLine() = 0;
    // The proxy as the host reports it, credentials decoded; all zero (state
    // 0: no proxy) when there is no host to ask. Asked before every request.
    virtual void getProxyData(mwiProxyState& state) = 0;
    // True while the dialog's window exists; status texts and progress are
    // only shown then.
    virtual bool hasWindow() = 0;
    virtual void showStatusMessage(const QString& text, int timeoutMs) = 0;
    // Bytes already on disk when a fetch resumes; setProgress adds them to the
    // bytes read.
    virtual void addBytesOnDisk(long bytes) = 0;
    virtual void setProgress(int bytesRead) = 0;
    virtual void getSizeFile(long size) = 0;

    // Completion, chosen by the request kind.
    virtual void parseFileTxt(QString file, int param) = 0;           // kind 0
    virtual void parseFileTxt1(QString file, int param) = 0;          // kind 1
    virtual void parseFileTxt2(QString file, int param) = 0;          // kind 2
    virtual void downloadModule(QString file, bool notFound) = 0;     // kind 3
    virtual void getNewModule(QString file) = 0;                      // kind 4
    virtual void autoDownloadConfig(QString file) = 0;                // kind 5
    virtual void autoDownloadConfigDescr(QString file, int param) = 0;  // kind 6
};
