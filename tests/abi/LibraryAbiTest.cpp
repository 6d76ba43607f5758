// The built library as a host links it: exactly its four entry points and
// its SONAME. RecordBytesTest.cpp loads it and calls them.
#include <set>
#include <string>

#include <QProcess>
#include <QStringList>
#include <gtest/gtest.h>

namespace {

QString runTool(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    EXPECT_TRUE(process.waitForFinished(60000)) << program.toStdString();
    EXPECT_EQ(0, process.exitCode()) << process.readAllStandardError().toStdString();
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

}  // namespace

TEST(LibraryExports, ExactlyTheFourEntryPointsAndSonameVersionOne)
{
    std::set<std::string> exported;
    const QString symbols = runTool("nm", {"-D", "--defined-only", DM_LIBRARY_PATH});
    for (const QString& line : symbols.split('\n', Qt::SkipEmptyParts)) {
        const QStringList fields = line.split(' ', Qt::SkipEmptyParts);
        ASSERT_EQ(3, fields.size()) << line.toStdString();
        exported.insert(fields[2].toStdString());
    }
    EXPECT_EQ((std::set<std::string>{"GetModule", "GetModuleInfo", "Initialize", "ReceiveMessage"}),
              exported);
    EXPECT_TRUE(runTool("readelf", {"-d", DM_LIBRARY_PATH})
                    .contains(QStringLiteral("Library soname: [libDownloadModule.so.1]")));
    EXPECT_TRUE(QString(DM_LIBRARY_PATH).endsWith(QStringLiteral("libDownloadModule.so.1")));
}
