// The small file logger: file names, the threshold and the line format.
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "module/MessLog.h"

TEST(MessLog, FileNamesFollowTheParent)
{
    messLog plain;
    EXPECT_EQ(QStringLiteral("./Temp/NoParent.log"), plain.fileName());
    EXPECT_EQ(clInfo, plain.threshold());
    messLog named("Installer");
    EXPECT_EQ(QStringLiteral("./Temp/Installer.log"), named.fileName());
    named.setParentName(QStringLiteral("Other"), false);
    EXPECT_EQ(QStringLiteral("./Temp/Installer.log"), named.fileName());
    named.setParentName(QStringLiteral("Other"), true);
    EXPECT_EQ(QStringLiteral("./Temp/Other.log"), named.fileName());
}

TEST(MessLog, StampPutsDayBeforeMonthWithDotsEverywhere)
{
    EXPECT_EQ(QStringLiteral("07.03 09.05.01"), messLogStamp(7, 3, 9, 5, 1));
    EXPECT_EQ(QStringLiteral("31.12 23.59.59"), messLogStamp(31, 12, 23, 59, 59));
}

TEST(MessLog, WritesLinesUpToTheThresholdAndAppends)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("m.log"));
    messLog log(path.toLocal8Bit().constData(), "P", clInfo);
    log.addMessage(QStringLiteral("too detailed"), clDebug);
    EXPECT_FALSE(QFile::exists(path));
    log.addMessage(QStringLiteral("kept"), clInfo);
    log.addMessage(QStringLiteral("severe"), clCritical);
    log.printData(QStringLiteral("raw"));

    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = file.readAll().split('\n');
    ASSERT_EQ(4, lines.size());  // three lines and what follows the last line break
    const QRegularExpression stamped(QStringLiteral("^\\d\\d\\.\\d\\d \\d\\d\\.\\d\\d\\.\\d\\d - kept\r$"));
    EXPECT_TRUE(stamped.match(QString::fromLatin1(lines[0])).hasMatch()) << lines[0].constData();
    EXPECT_TRUE(lines[1].endsWith(" - severe\r"));
    EXPECT_EQ(QByteArray("raw\r"), lines[2]);
    EXPECT_TRUE(lines[3].isEmpty());
}

TEST(MessLog, AFileInAMissingFolderIsSkipped)
{
    messLog missingFolder("/nonexistent-folder/sub/x.log", "P", clTrace);
    missingFolder.addMessage(QStringLiteral("lost"), clCritical);
    EXPECT_FALSE(QFile::exists(QStringLiteral("/nonexistent-folder/sub/x.log")));
}
