#include "transfer/HttpResponseHeader.h"

QString CHttpResponseHeader::value(const QString& name) const
{
    for (const auto& field : fields_)
        if (field.first.compare(name, Qt::CaseInsensitive) == 0)
            return field.second;
    return QString();
}

bool CHttpResponseHeader::hasKey(const QString& name) const
{
    for (const auto& field : fields_)
        if (field.first.compare(name, Qt::CaseInsensitive) == 0)
            return true;
    return false;
}

void CHttpResponseHeader::setStatusLine(int code, const QString& reason, int major, int minor)
{
    statusCode_ = code;
    reason_ = reason;
    major_ = major;
    minor_ = minor;
}

void CHttpResponseHeader::addValue(const QString& name, const QString& value)
{
    fields_.append(qMakePair(name, value));
}

void CHttpResponseHeader::appendToLast(const QString& text)
{
    if (!fields_.isEmpty())
        fields_.last().second += QLatin1Char(' ') + text;
}
