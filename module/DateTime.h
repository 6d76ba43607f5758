#pragma once
// Date and time formatting done by the host, so that the module shows times
// the way the rest of the terminal does. Both formatters come with 3207 and
// may be missing, in which case every result is an empty string.
#include <QDateTime>
#include <QString>

#include "protocol/HostRecords.h"

namespace Velmora {

class DateTime {
public:
    DateTime(HostCallback send, void* host);

    bool isValid() const { return formatDateTime_ != nullptr || formatTime_ != nullptr; }
    QString toString(const QDateTime& time, const QString& format) const;
    QString toString(long time, const QString& format, bool flag) const;

private:
    DateTimeFormatter formatDateTime_ = nullptr;
    TimeTFormatter formatTime_ = nullptr;
};

}  // namespace Velmora
