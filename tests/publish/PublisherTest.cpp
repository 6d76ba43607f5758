// The publishing tool: the tree it writes is read by the module's own list
// parsers, the shipped sample tree is what the tool makes of the shipped
// manifest, and manifests the module could not read are refused by name.
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

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

QByteArray gunzip(const QString& path)
{
    gzFile in = gzopen(QFile::encodeName(path).constData(), "rb");
    QByteArray out;
    char buffer[4096];
    int n;
    while (in && (n = gzread(in, buffer, sizeof buffer)) > 0)
        out.append(buffer, n);
    if (in)
        gzclose(in);
    return out;
}

struct Published {
    int exitCode;
    QString error;
};

Published publish(const QString& manifest, const QString& output)
{
    QProcess process;
    process.start(DM_PUBLISHER_PATH, {manifest, output});
    process.waitForFinished(-1);
    return {process.exitCode(), QString::fromLocal8Bit(process.readAllStandardError())};
}

QStringList lines(const QString& path)
{
    return QString::fromLocal8Bit(readAll(path)).split('\n', Qt::SkipEmptyParts);
}

const QString kRelease = QStringLiteral(DM_SOURCE_DIR "/examples/release");

}  // namespace

TEST(Publisher, TheShippedServerTreeIsWhatTheToolMakesOfTheShippedManifest)
{
    QTemporaryDir dir;
    const QString out = dir.filePath("server");
    ASSERT_EQ(0, publish(kRelease + "/manifest.json", out).exitCode);
    QStringList produced;
    QDirIterator it(out, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = path.mid(out.size());
        produced << relative;
        EXPECT_EQ(readAll(path), readAll(DM_SOURCE_DIR "/examples/server" + relative))
            << relative.toStdString();
    }
    EXPECT_EQ(32, produced.size());
}

TEST(Publisher, TheModuleReadsEveryPublishedEntry)
{
    QTemporaryDir dir;
    const QString out = dir.filePath("server");
    ASSERT_EQ(0, publish(kRelease + "/manifest.json", out).exitCode);

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
    EXPECT_EQ(readAll(kRelease + "/modules/charts.so"), gunzip(out + "/files/charts.so.gz"));
    EXPECT_EQ(readAll(kRelease + "/descriptions/charts.so.txt"),
              readAll(out + "/descriptions/charts.so.txt"));

    dlListModule standard;
    parseModuleLines(lines(out + "/lists/Standard.modules.txt"), standard, ModuleListBasis());
    EXPECT_EQ(3, standard.count);
}

struct BadManifest {
    const char* name;
    const char* change;  // replaces the first module's "date" line in a copy
    int exitCode;
    const char* message;
};

void PrintTo(const BadManifest& c, std::ostream* out)
{
    *out << c.name;
}

class Refused : public ::testing::TestWithParam<BadManifest> {};

TEST_P(Refused, NamingTheEntry)
{
    QTemporaryDir dir;
    for (const char* folder : {"modules", "descriptions"}) {
        QDir().mkpath(dir.filePath(folder));
        QDirIterator it(kRelease + '/' + folder, QDir::Files);
        while (it.hasNext()) {
            const QString from = it.next();
            QFile::copy(from, dir.filePath(QString(folder) + '/' + QFileInfo(from).fileName()));
        }
    }
    QByteArray manifest = readAll(kRelease + "/manifest.json");
    const QByteArray original = "\"date\": \"2026-11-02\"";  // core.so, the first module
    ASSERT_TRUE(manifest.contains(original));
    manifest.replace(original, GetParam().change);
    QFile file(dir.filePath("manifest.json"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(manifest);
    file.close();

    const Published result = publish(dir.filePath("manifest.json"), dir.filePath("out"));
    EXPECT_EQ(GetParam().exitCode, result.exitCode);
    EXPECT_TRUE(result.error.contains(QString::fromLatin1(GetParam().message)))
        << result.error.toStdString();
    EXPECT_FALSE(QFile::exists(dir.filePath("out/moduleDesc.txt")));
}

INSTANTIATE_TEST_SUITE_P(
    Manifests, Refused,
    ::testing::Values(
        BadManifest{"CommaInDate", "\"date\": \"2, Nov\"", 2, "module \"core.so\": the date"},
        BadManifest{"TwoPartVersion", "\"date\": \"x\", \"version\": \"3.4\"", 2,
                    "module \"core.so\": version \"3.4\" is not a.b.c"},
        BadManifest{"NegativeType", "\"date\": \"x\", \"type\": -1", 2, "module \"core.so\": type"},
        BadManifest{"NameWithComma", "\"date\": \"x\", \"name\": \"co,re.so\"", 2,
                    "a name must be a plain file name"},
        BadManifest{"SameSavedNameTwice", "\"date\": \"x\", \"name\": \"charts.so\"", 3,
                    "published twice"}),
    [](const ::testing::TestParamInfo<BadManifest>& info) { return info.param.name; });
