#include "transfer/HttpRequestHeader.h"

CHttpRequestHeader::CHttpRequestHeader(const QString& method, const QString& path, int major,
                                       int minor)
    : method_(method), path_(path), major_(major), minor_(minor)
{
}

void CHttpRequestHeader::setValue(const QString& name, const QString& value)
{
    for (auto& field : fields_) {
        if (field.first.compare(name, Qt::CaseInsensitive) == 0) {
            field.second = value;
            return;
        }
    }
    fields_.append(qMakePair(name, value));
}

QString CHttpRequestHeader::value(const QString& name) const
{
    for (const auto& field : fields_)
        if (field.first.compare(name, Qt::CaseInsensitive) == 0)
            return field.second;
    return QString();
}

bool CHttpRequestHeader::hasKey(const QString& name) const
{
    for (const auto& field : fields_)
        if (field.first.compare(name, Qt::CaseInsensitive) == 0)
            return true;
    return false;
}

QByteArray CHttpRequestHeader::toByteArray() const
{
    QByteArray out = method_.toLatin1() + ' ' + path_.toLatin1() + " HTTP/"
        + QByteArray::number(major_) + '.' + QByteArray::number(minor_) + "\r\n";
    for (const auto& field : fields_)
        out += field.first.toLatin1() + ": " + field.second.toLatin1() + "\r\n";
    out += "\r\n";
    return out;
}
