#pragma once
// The status line and header fields of an HTTP response, as received.
#include <QMetaType>
#include <QPair>
#include <QString>
#include <QVector>

class CHttpResponseHeader {
public:
    bool isValid() const { return statusCode_ > 0; }
    int statusCode() const { return statusCode_; }
    QString reasonPhrase() const { return reason_; }
    int majorVersion() const { return major_; }
    int minorVersion() const { return minor_; }

    // First value of a field; names compare without regard to case.
    QString value(const QString& name) const;
    bool hasKey(const QString& name) const;
    const QVector<QPair<QString, QString>>& values() const { return fields_; }
    int count() const { return fields_.size(); }

    void setStatusLine(int code, const QString& reason, int major, int minor);
    void addValue(const QString& name, const QString& value);
    // Appends a folded continuation line to the last field.
    void appendToLast(const QString& text);

private:
    int statusCode_ = 0;
    QString reason_;
    int major_ = 1;
    int minor_ = 1;
    QVector<QPair<QString, QString>> fields_;
};

Q_DECLARE_METATYPE(CHttpResponseHeader)
