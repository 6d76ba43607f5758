// The built module-host program, run as a process on a temporary profile:
// what it prints, what it creates and how it exits.
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

struct HostRun {
    int exitCode = -1;
    QString out;
    QString err;
};

class ModuleHostProgramTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }

    QString writeProfile(const QByteArray& json, const QString& name = QStringLiteral("p.json"))
    {
        const QString path = dir.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(json);
        return path;
    }

    // Runs the host to its end; the host exits by itself in headless mode.
    static HostRun run(const QStringList& arguments)
    {
        QProcess process;
        process.start(QStringLiteral(DM_MODULE_HOST), arguments);
        HostRun result;
        if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit)
            return result;
        result.exitCode = process.exitCode();
        result.out = QString::fromUtf8(process.readAllStandardOutput());
        result.err = QString::fromUtf8(process.readAllStandardError());
        return result;
    }

    QTemporaryDir dir;
};

TEST_F(ModuleHostProgramTest, RegistersTheModuleAndForwardsTheModuleArguments)
{
    const QString profile = writeProfile(R"({
        "folders": {"2": "run/config", "101": "run/download"},
        "workFolder": "run/user",
        "languages": [{"name": "English", "current": true}]
    })");
    // Everything after the profile is the module's, including what looks like
    // the host's or Qt's own options.
    const HostRun result = run({"--headless", "--log", dir.filePath("host.log"), profile,
                                "/OFFLINE", "--headless", "-style", "fusion"});

    ASSERT_EQ(result.exitCode, 0) << qPrintable(result.err);
    const QString library = QFileInfo(QStringLiteral(DM_MODULE_LIBRARY)).canonicalFilePath();
    EXPECT_TRUE(result.out.contains(
        QStringLiteral("module-host: loaded %1: \"Velmora.Download module\" (Update module) "
                       "1.2.9, context CTransDownload\n")
            .arg(library)))
        << qPrintable(result.out);
    EXPECT_TRUE(result.out.contains(
        QStringLiteral("module-host: code 3007 with argc 5: \"%1\" \"/OFFLINE\" "
                       "\"--headless\" \"-style\" \"fusion\"\n")
            .arg(QStringLiteral(DM_MODULE_HOST))))
        << qPrintable(result.out);
    EXPECT_TRUE(result.out.contains(
        QStringLiteral("module-host: registered Download (VELMORA, vmDownload) kind 1, "
                       "51 texts\n")))
        << qPrintable(result.out);

    // The terminal's folders exist once the host has started.
    for (const char* folder : {"run/config", "run/download", "run/user"})
        EXPECT_TRUE(QFileInfo(dir.filePath(QString::fromLatin1(folder))).isDir()) << folder;
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("host.log")));
}

TEST_F(ModuleHostProgramTest, LoadFailuresNameWhatCouldNotBeLoaded)
{
    const QString profile = writeProfile("{}");

    const QString missing = dir.filePath(QStringLiteral("no/libDownloadModule.so.1"));
    HostRun result = run({"--headless", "--library", missing, profile});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_TRUE(result.err.contains(QStringLiteral("cannot load ") + missing))
        << qPrintable(result.err);
    EXPECT_FALSE(result.out.contains(QStringLiteral("registered")));

    // A real library that is not a module.
    result = run({"--headless", "--library", QStringLiteral(DM_FOREIGN_LIBRARY), profile});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_TRUE(result.err.contains(QStringLiteral(DM_FOREIGN_LIBRARY)
                                    + QStringLiteral(" does not export GetModuleInfo")))
        << qPrintable(result.err);
}

TEST_F(ModuleHostProgramTest, BadProfilesAndCommandLinesStopBeforeLoading)
{
    const QString broken = writeProfile(R"({"folders": {"2": "run/config"},)", "broken.json");
    HostRun result = run({"--headless", broken});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains(QStringLiteral("profile ") + broken + QStringLiteral(": ")))
        << qPrintable(result.err);
    EXPECT_TRUE(result.err.contains(QStringLiteral("at offset")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("run"))));
    EXPECT_FALSE(result.out.contains(QStringLiteral("loaded")));

    const QString missing = dir.filePath(QStringLiteral("missing.json"));
    result = run({"--headless", missing});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains(missing)) << qPrintable(result.err);

    result = run({"--headles", missing});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.err.contains(QStringLiteral("unknown option --headles")));
    EXPECT_TRUE(result.err.contains(QStringLiteral("usage: module-host")));
}

}  // namespace
