#pragma once
// The proxy test a terminal offers in its connection settings: the host hands
// the module its proxy settings (3517) and shows what the module found out,
// one line per tested server.
#include <QStringList>

#include "protocol/HostRecords.h"

struct HostProxy;

// The request record for the settings as the user typed them. Unlike 3516,
// the credentials travel in plain text here. The module reads the proxy type
// field as the seconds the test may take.
mwiTesProxy proxyTestRecord(const HostProxy& proxy, int seconds);

// One line per result entry the module filled: name, host:port, and
// "passed" or "failed". Entry counts beyond the record's ten are cut.
QStringList proxyTestReport(const mwiTesProxy& record);

// True when the module filled at least one entry and none failed.
bool proxyTestPassed(const mwiTesProxy& record);
