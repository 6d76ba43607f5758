#include "host/app/HostTranslator.h"

#include <QTextCodec>

void HostTranslator::insert(const QByteArray& context, const QByteArray& key,
                            const QByteArray& text)
{
    const QString decoded = decodeWindows1252(text);
    QWriteLocker locker(&lock_);
    texts_.insert(qMakePair(context, key), decoded);
}

int HostTranslator::size() const
{
    QReadLocker locker(&lock_);
    return texts_.size();
}

QString HostTranslator::translate(const char* context, const char* sourceText, const char*,
                                  int) const
{
    if (!context || !sourceText)
        return QString();
    QReadLocker locker(&lock_);
    return texts_.value(qMakePair(QByteArray(context), QByteArray(sourceText)));
}

bool HostTranslator::isEmpty() const
{
    return size() == 0;
}

QString HostTranslator::decodeWindows1252(const QByteArray& text)
{
    // Qt carries this codec built in; Latin-1 is only a fallback for a build
    // without codecs, where 0x80-0x9F would come out as control characters.
    static QTextCodec* const codec = QTextCodec::codecForName("Windows-1252");
    return codec ? codec->toUnicode(text) : QString::fromLatin1(text);
}
