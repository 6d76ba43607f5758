#include "host/app/HostProxyTest.h"

#include <cstring>

#include "host/app/HostProfile.h"
#include "storage/RecordText.h"

namespace {

// The module writes the count; a host does not trust it to stay in the record.
int filledEntries(const mwiTesProxy& record)
{
    const int32_t count = record.resultCount;
    const int capacity = int(sizeof record.results / sizeof record.results[0]);
    return count < 0 ? 0 : (count > capacity ? capacity : int(count));
}

}  // namespace

mwiTesProxy proxyTestRecord(const HostProxy& proxy, int seconds)
{
    mwiTesProxy record;
    std::memset(&record, 0, sizeof record);
    record.proxy.state = proxy.state;
    copyToField(record.proxy.host, proxy.host.toLocal8Bit());
    record.proxy.port = proxy.port;
    copyToField(record.proxy.user, proxy.user.toLocal8Bit());
    copyToField(record.proxy.password, proxy.password.toLocal8Bit());
    record.proxyType = seconds;
    return record;
}

QStringList proxyTestReport(const mwiTesProxy& record)
{
    QStringList lines;
    for (int index = 0; index < filledEntries(record); ++index) {
        const mwiTesProxyResult& entry = record.results[index];
        const int32_t port = entry.port;
        const int32_t failed = entry.failed;
        lines << QStringLiteral("%1 %2:%3 %4")
                     .arg(QString::fromLocal8Bit(fieldBytes(entry.name)),
                          QString::fromLocal8Bit(fieldBytes(entry.host)), QString::number(port),
                          failed == 0 ? QStringLiteral("passed") : QStringLiteral("failed"));
    }
    return lines;
}

bool proxyTestPassed(const mwiTesProxy& record)
{
    const int count = filledEntries(record);
    for (int index = 0; index < count; ++index) {
        const int32_t failed = record.results[index].failed;
        if (failed != 0)
            return false;
    }
    return count > 0;
}
