#pragma once
// The sample update server of the dialog's tests and of the host's script
// tests, laid out as a publisher would: one configuration newer than the
// installed one with its own module list, and a general list with a newer
// module (charts.so), one at the installed version (news.so) and one the
// terminal does not have (orders.so), with description texts and files.
#include <QDir>
#include <QFileInfo>
#include <QString>

#include "transfer/support/FileHelpers.h"

// orders.so's size in kB is the caller's: the dialog's tests need a file
// large enough to pause in, the script tests a quick one.
inline void publishSampleServer(const QString& root, int ordersKb)
{
    const auto put = [&root](const char* relative, const QByteArray& bytes) {
        QDir().mkpath(QFileInfo(root + relative).path());
        writeText(root + relative, bytes);
    };
    put("/configDesc.txt",
        "Standard,3.4.0,/configs/standard-modules.txt,/desc/standard.txt,Standard configuration\n");
    put("/configs/standard-modules.txt",
        "quotes.so,2.1.0,3.3.8,1,/desc/quotes.txt,/files/quotes.so.gz,2026-11-01,12\n");
    put("/moduleDesc.txt",
        "charts.so,1.5.0,3.3.8,1,/desc/charts.txt,/files/charts.so.gz,2026-10-01,20\n"
        "news.so,1.0.0,3.3.8,1,/desc/news.txt,/files/news.so.gz,2026-09-01,5\n"
        "orders.so,4.0.0,3.3.8,1,/desc/orders.txt,/files/orders.so.gz,2026-11-10,"
            + QByteArray::number(ordersKb) + "\n");
    put("/desc/standard.txt", "The standard set of modules.");
    put("/desc/quotes.txt", "Quotes, faster.");
    put("/desc/charts.txt", "Charts with \xe9l\xe9gance.");
    put("/desc/orders.txt", "Orders of every kind.");
    put("/files/quotes.so.gz", patternBytes(12 * 1024, 'q'));
    put("/files/charts.so.gz", patternBytes(20 * 1024, 'c'));
    put("/files/news.so.gz", patternBytes(5 * 1024, 'n'));
    put("/files/orders.so.gz", patternBytes(ordersKb * 1024, 'o'));
}
