#include "transfer/ResumeAnswer.h"

#include <QRegularExpression>

namespace {

// The first byte of a "Content-Range: bytes FIRST-LAST/TOTAL" value (TOTAL
// may be "*"); -1 when the value is not of that form.
qint64 firstByteOf(const QString& contentRange)
{
    static const QRegularExpression form(
        QStringLiteral("^\\s*bytes\\s+(\\d{1,18})-(\\d{1,18})/(\\d{1,18}|\\*)\\s*$"),
        QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = form.match(contentRange);
    if (!match.hasMatch())
        return -1;
    const qint64 first = match.captured(1).toLongLong();
    const qint64 last = match.captured(2).toLongLong();
    return last >= first ? first : -1;
}

}  // namespace

ResumeAnswer classifyResumeAnswer(int status, const QString& contentRange, qint64 offset)
{
    if (status == 200)
        return ResumeAnswer::Restart;
    if (status == 206 && firstByteOf(contentRange) == offset)
        return ResumeAnswer::Append;
    return ResumeAnswer::Refuse;
}
