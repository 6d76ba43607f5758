// The updater's file installer: backups, temporary names, failures.
#include <cerrno>

#include <sys/stat.h>

#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include "InstallTestSupport.h"
#include "updater/FileInstaller.h"
#include "updater/UpdaterLog.h"

namespace {

class Installer : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(root.isValid());
        ASSERT_TRUE(QDir().mkpath(dest));
        ASSERT_TRUE(writeFile(src + "/quotes.so", "new quotes"));
    }

    QTemporaryDir root;
    QString src = root.filePath("download");
    QString dest = root.filePath("modules");
    QString backup = root.filePath("download/Backup");
    CUpdaterLog log{root.filePath("updater.log")};
    CFileInstaller installer{backup, &log};
};

}  // namespace

TEST_F(Installer, ANewFileIsCopiedWithItsModeAndNeedsNoBackup)
{
    ::chmod(QFile::encodeName(src + "/quotes.so").constData(), 0750);
    ASSERT_EQ(0, installer.install(src + "/quotes.so", dest, false));
    EXPECT_EQ(QByteArray("new quotes"), fileContent(dest + "/quotes.so"));
    EXPECT_EQ(QByteArray("new quotes"), fileContent(src + "/quotes.so"));  // copied, not moved
    EXPECT_TRUE(installer.lastBackup().isEmpty());
    EXPECT_EQ(QStringList{"quotes.so"}, filesBelow(dest));
    EXPECT_EQ(QFile::ExeOwner | QFile::ExeGroup,
              QFileInfo(dest + "/quotes.so").permissions() & (QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther));
    EXPECT_TRUE(fileContent(root.filePath("updater.log")).contains("installed"));
}

TEST_F(Installer, AReplacedFileIsKeptInTheRunsBackupFolder)
{
    ASSERT_TRUE(writeFile(dest + "/quotes.so", "old quotes"));
    ASSERT_EQ(0, installer.install(src + "/quotes.so", dest, false));

    EXPECT_EQ(QByteArray("new quotes"), fileContent(dest + "/quotes.so"));
    const QString expectedBackup = installer.runFolder() + QFileInfo(dest + "/quotes.so").absoluteFilePath();
    EXPECT_EQ(expectedBackup, installer.lastBackup());
    EXPECT_EQ(QByteArray("old quotes"), fileContent(expectedBackup));
    EXPECT_TRUE(installer.runFolder().startsWith(backup + "/"));
    EXPECT_EQ(QStringList{"quotes.so"}, filesBelow(dest));
}

TEST_F(Installer, EveryVersionReplacedInOneRunIsKept)
{
    ASSERT_TRUE(writeFile(dest + "/quotes.so", "first"));
    ASSERT_EQ(0, installer.install(src + "/quotes.so", dest, false));
    const QString firstBackup = installer.lastBackup();
    ASSERT_TRUE(writeFile(src + "/quotes.so", "third"));
    ASSERT_EQ(0, installer.install(src + "/quotes.so", dest, false));
    const QString secondBackup = installer.lastBackup();

    EXPECT_NE(firstBackup, secondBackup);
    EXPECT_EQ(QByteArray("first"), fileContent(firstBackup));
    EXPECT_EQ(QByteArray("new quotes"), fileContent(secondBackup));
    EXPECT_EQ(QByteArray("third"), fileContent(dest + "/quotes.so"));
}

TEST_F(Installer, TheLongestFileNameAFolderAllowsCanBeReplaced)
{
    // A temporary name made by adding to the file's name would exceed the
    // 255-byte limit of a name.
    const QString name = QString(255, 'q');
    ASSERT_TRUE(writeFile(src + "/" + name, "long new"));
    ASSERT_TRUE(writeFile(dest + "/" + name, "long old"));
    ASSERT_EQ(0, installer.install(src + "/" + name, dest, false));
    EXPECT_EQ(QByteArray("long new"), fileContent(dest + "/" + name));
    EXPECT_EQ(QByteArray("long old"), fileContent(installer.lastBackup()));
}

TEST_F(Installer, FailuresChangeNothingInTheDestination)
{
    ASSERT_TRUE(writeFile(dest + "/quotes.so", "old quotes"));
    ASSERT_TRUE(QDir().mkpath(dest + "/folder.so"));
    ASSERT_TRUE(QDir().mkpath(src + "/folder.so"));
    ASSERT_TRUE(writeFile(src + "/folder2.so", "x"));
    ASSERT_TRUE(QDir().mkpath(dest + "/folder2.so"));
    const QStringList before = filesBelow(dest);

    EXPECT_EQ(ENOENT, installer.install(src + "/absent.so", dest, false));
    EXPECT_EQ(ENOENT, installer.install(src + "/quotes.so", root.filePath("no/such/folder"), false));
    EXPECT_FALSE(QFileInfo::exists(root.filePath("no")));
    EXPECT_EQ(ENOTDIR, installer.install(src + "/quotes.so", dest + "/quotes.so", false));
    EXPECT_EQ(EISDIR, installer.install(src + "/folder.so", dest, false));
    EXPECT_EQ(EISDIR, installer.install(src + "/folder2.so", dest, false));
    EXPECT_EQ(EINVAL, installer.install(QString(), dest, false));
    EXPECT_EQ(EINVAL, installer.install(src + "/quotes.so", QString(), false));
    EXPECT_EQ(ENAMETOOLONG, installer.install(src + "/" + QString(256, 'n'), dest, false));

    EXPECT_EQ(before, filesBelow(dest));
    EXPECT_EQ(QByteArray("old quotes"), fileContent(dest + "/quotes.so"));
}

TEST_F(Installer, NoBackupNoReplacement)
{
    // The backup folder cannot be made (a file stands in its way): the old
    // file must stay, and no temporary file may be left behind.
    ASSERT_TRUE(writeFile(root.filePath("blocked"), "a file, not a folder"));
    CFileInstaller blocked(root.filePath("blocked/Backup"), nullptr);
    ASSERT_TRUE(writeFile(dest + "/quotes.so", "old quotes"));

    EXPECT_EQ(ENOTDIR, blocked.install(src + "/quotes.so", dest, false));
    EXPECT_EQ(QByteArray("old quotes"), fileContent(dest + "/quotes.so"));
    EXPECT_EQ(QStringList{"quotes.so"}, filesBelow(dest));

    // A new file needs no backup and goes in all the same.
    ASSERT_TRUE(writeFile(src + "/fresh.so", "fresh"));
    EXPECT_EQ(0, blocked.install(src + "/fresh.so", dest, false));
}
