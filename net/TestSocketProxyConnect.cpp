#include "net/TestSocketProxyConnect.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QTimer>

CTestSocketProxyConnect::CTestSocketProxyConnect(int timeoutSeconds, char const* targetHost,
                                                 int targetPort, char const* proxyHost,
                                                 int proxyPort, char const* login,
                                                 char const* password)
    : timeout(timeoutSeconds)
{
    SetDestination(QString::fromLocal8Bit(targetHost), targetPort);
    SetProxy(kHttpProxy, QString::fromLocal8Bit(proxyHost), proxyPort,
             QString::fromLocal8Bit(login), QString::fromLocal8Bit(password));
    connect(this, &CVMSockBase::sgConnectEvent, this, &CTestSocketProxyConnect::TestDataConnectEvent);
    connect(this, &CVMSockBase::sgDisconnectEvent, this,
            &CTestSocketProxyConnect::TestDataDisconnectEvent);
    connect(this, &CVMSockBase::sgErrorEvent, this, &CTestSocketProxyConnect::TestDataErrorEvent);
    connect(this, &CVMSockBase::sgProxyConnect, this, &CTestSocketProxyConnect::TestDataProxyConnect);
}

bool CTestSocketProxyConnect::DoTest()
{
    const qint64 start = QDateTime::currentSecsSinceEpoch();
    reported = false;
    connected = false;
    enableSocketNow();
    QTimer tick;
    tick.start(100);
    while (!connected && QDateTime::currentSecsSinceEpoch() < start + timeout)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return connectOk;
}

bool CTestSocketProxyConnect::DoTestProxy()
{
    const qint64 start = QDateTime::currentSecsSinceEpoch();
    reported = false;
    proxyAnswered = false;
    enableSocketNow();
    // Woken once a second only to look at the clock.
    QTimer tick;
    tick.start(1000);
    while (!proxyAnswered && QDateTime::currentSecsSinceEpoch() < start + timeout)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return proxyOk;
}

void CTestSocketProxyConnect::TestDataConnectEvent()
{
    if (reported)
        return;
    connectOk = true;
    connected = true;
    reported = true;
}

void CTestSocketProxyConnect::TestDataDisconnectEvent()
{
    if (reported)
        return;
    proxyOk = false;
    connectOk = false;
    connected = true;
    reported = true;
}

void CTestSocketProxyConnect::TestDataErrorEvent(int)
{
    if (reported)
        return;
    proxyOk = false;
    connectOk = false;
    connected = true;
    proxyAnswered = true;
    reported = true;
}

void CTestSocketProxyConnect::TestDataProxyConnect(void)
{
    if (reported)
        return;
    proxyOk = true;
    proxyAnswered = true;
}
