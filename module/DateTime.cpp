#include "module/DateTime.h"

#include "protocol/HostMessages.h"

namespace Velmora {

DateTime::DateTime(HostCallback send, void* host)
{
    if (!send)
        return;
    coreDateTimeFormatters formatters{nullptr, nullptr};
    if (send(host, HostMsg::GetDateFormatters, reinterpret_cast<intptr_t>(&formatters), 0) != 0)
        return;
    formatDateTime_ = formatters.formatDateTime;
    formatTime_ = formatters.formatTime;
}

QString DateTime::toString(const QDateTime& time, const QString& format) const
{
    QString out;
    if (formatDateTime_)
        formatDateTime_(time, format, &out);
    return out;
}

QString DateTime::toString(long time, const QString& format, bool flag) const
{
    QString out;
    if (formatTime_)
        formatTime_(time, format, flag, &out);
    return out;
}

}  // namespace Velmora
