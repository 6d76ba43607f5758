// The publishing tool: the shipped sample tree (which tests/e2e installs) is
// what it makes of the shipped manifest, its lists read as the module's
// parsers read them, and manifests the module could not read are refused.
#include <zlib.h>

#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "update/ConfigListParser.h"
#include "update/UpdateTestSupport.h"
#include "update/ModuleListParser.h"

namespace {

const QString kRelease = QStringLiteral(DM_SOURCE_DIR "/examples/release");

QByteArray gunzip(const QString& path)
{
    gzFile in = gzopen(QFile::encodeName(path).constData(), "rb");
    QByteArray out(1 << 20, '\0');
    const int n = in ? gzread(in, out.data(), unsigned(out.size())) : -1;
    if (in)
        gzclose(in);
    return out.left(n);
}

// The tool's exit code; its error output goes to error.
int publish(const QString& manifest, const QString& output, QString* error = nullptr, QStringList flags = {})
{
    QProcess process;
    process.start(DM_PUBLISHER_PATH, flags << manifest << output);
    process.waitForFinished(-1);
    if (error)
        *error = QString::fromLocal8Bit(process.readAllStandardError());
    return process.exitCode();
}

QStringList lines(const QString& path)
{
    return QString::fromLocal8Bit(readFile(path)).split('\n', Qt::SkipEmptyParts);
}

}  // namespace

// Signed with the sample key, the tool writes the shipped tree: a signature
// beside every text.
TEST(Publisher, WritesTheShippedServerTreeWhichTheModuleReadsEntirely)
{
    QTemporaryDir dir;
    const QString out = dir.filePath("server");
    ASSERT_EQ(0, publish(kRelease + "/manifest.json", out, nullptr,
                         {"--sign", DM_SOURCE_DIR "/examples/signing/release.key"}));
    int produced = 0;
    QDirIterator it(out, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString relative = it.next().mid(out.size());
        ++produced;
        EXPECT_EQ(readFile(out + relative), readFile(DM_SOURCE_DIR "/examples/server" + relative))
            << relative.toStdString();
    }
    EXPECT_EQ(32 + 19, produced);
    dlListModule configs;
    parseConfigLines(lines(out + "/configDesc.txt"), configs, nullptr, 0, false);
    ASSERT_EQ(2, configs.count);
    // The title may hold commas.
    EXPECT_EQ(fields(configs.modules[0]),
              "Standard|3.4.0|||/lists/Standard.modules.txt|/descriptions/Standard.config.txt||Standard|"
              "Standard configuration, November release||-1");
    dlListModule modules;
    parseModuleLines(lines(out + "/moduleDesc.txt"), modules, ModuleListBasis());
    ASSERT_EQ(8, modules.count);  // every line parsed: nothing is cut off early
    // The size is the compressed file's, in kB rounded up.
    const qint64 kb = (QFileInfo(out + "/files/charts.so.gz").size() + 1023) / 1024;
    EXPECT_EQ(fields(modules.modules[0]),
              "charts.so|1.5.0|3.4.0|1|/files/charts.so.gz|/descriptions/charts.so.txt|||2026-10-01|"
                  + QByteArray::number(kb) + " kb|-1");
    EXPECT_EQ(readFile(kRelease + "/modules/charts.so"), gunzip(out + "/files/charts.so.gz"));
}

// Each case changes the first module (core.so) of a copy of the shipped
// manifest whose paths point back at the release folder.
TEST(Publisher, RefusesWhatTheModuleCouldNotReadNamingTheEntry)
{
    const struct {
        const char* why;
        const char* change;  // replaces the module's "date" line
        int exitCode;
        const char* message;
    } cases[] = {
        {"comma in the date", "\"date\": \"2, Nov\"", 2, "module \"core.so\": the date"},
        {"two-part version", "\"date\": \"x\", \"version\": \"3.4\"", 2,
         "module \"core.so\": version \"3.4\" is not a.b.c"},
        {"negative type", "\"date\": \"x\", \"type\": -1", 2, "module \"core.so\": type"},
        {"comma in the name", "\"date\": \"x\", \"name\": \"co,re.so\"", 2, "a name must be a plain file name"},
        {"saved name taken", "\"date\": \"x\", \"name\": \"charts.so\"", 3, "published twice"},
    };
    const QByteArray original = "\"date\": \"2026-11-02\"";
    QByteArray shipped = readFile(kRelease + "/manifest.json");
    ASSERT_TRUE(shipped.contains(original));
    for (const QByteArray key : {"\"file\": \"", "\"description\": \""})
        shipped.replace(key, key + kRelease.toUtf8() + '/');
    for (const auto& c : cases) {
        QTemporaryDir dir;
        writeListFile(dir, "manifest.json", QByteArray(shipped).replace(original, c.change));
        QString error;
        const int exitCode = publish(dir.filePath("manifest.json"), dir.filePath("out"), &error);
        EXPECT_EQ(c.exitCode, exitCode) << c.why;
        EXPECT_TRUE(error.contains(QString::fromLatin1(c.message))) << c.why << ": " << error.toStdString();
        EXPECT_FALSE(QFile::exists(dir.filePath("out/moduleDesc.txt"))) << c.why;
    }
}
