#pragma once
// The tunnel test: can the proxy be reached (DoTest), and does it open a
// CONNECT tunnel to the target (DoTestProxy). Each blocks its caller, pumping
// the event loop, for at most timeoutSeconds. GUI thread only.
#include "net/VMSockBase.h"

class CTestSocketProxyConnect : public CVMSockBase {
    Q_OBJECT
public:
    CTestSocketProxyConnect(int timeoutSeconds, char const* targetHost, int targetPort,
                            char const* proxyHost, int proxyPort, char const* login,
                            char const* password);

    bool DoTest();
    bool DoTestProxy();

private slots:
    void TestDataConnectEvent();
    void TestDataDisconnectEvent();
    void TestDataErrorEvent(int code);
    void TestDataProxyConnect(void);

private:
    // Only the first connect, disconnect or error counts; the latch is
    // "reported".
    bool connected = false;
    bool proxyAnswered = false;
    bool connectOk = false;
    bool proxyOk = false;
    bool reported = false;
    int timeout;
};
