#pragma once
// An HTTP/1.x request line with its header fields, kept in the order they were
// set. Nothing is added that the caller did not set: the connection sends
// exactly toByteArray().
#include <QByteArray>
#include <QPair>
#include <QString>
#include <QVector>

class CHttpRequestHeader {
public:
    CHttpRequestHeader() = default;
    CHttpRequestHeader(const QString& method, const QString& path, int major = 1, int minor = 1);

    // Replaces the value of a field already set (same name, compared without
    // regard to case) in its place; otherwise appends the field.
    void setValue(const QString& name, const QString& value);
    QString value(const QString& name) const;
    bool hasKey(const QString& name) const;
    const QVector<QPair<QString, QString>>& values() const { return fields_; }

    QString method() const { return method_; }
    QString path() const { return path_; }

    // "GET /x HTTP/1.1\r\nName: value\r\n...\r\n\r\n"; an empty value goes out
    // as "Name: " with nothing after the blank.
    QByteArray toByteArray() const;

private:
    QString method_;
    QString path_;
    int major_ = 1;
    int minor_ = 1;
    QVector<QPair<QString, QString>> fields_;
};
