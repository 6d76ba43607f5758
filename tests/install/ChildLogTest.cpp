// The process class's launch log: the started program holds "/tmp/frk.lg"
// open, as the updater always has.
#include <sys/wait.h>

#include <QDir>
#include <QFileInfo>
#include <gtest/gtest.h>

#include "platform/VmProcess.h"
#include "transfer/support/WaitFor.h"

TEST(VmProcessLog, TheStartedProgramHoldsTheLaunchLogOpen)
{
    CVmProcess process(true);
    process.start("/bin/sh", {"-c", "exec sleep 600"});
    ASSERT_GT(process.pid(), 0);
    const QString proc = QStringLiteral("/proc/%1").arg(process.pid());
    ASSERT_TRUE(waitFor([&] { return QFileInfo(proc + "/exe").symLinkTarget().endsWith("/sleep"); }));

    QStringList open;
    for (const QFileInfo& fd : QDir(proc + "/fd").entryInfoList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot))
        open << fd.symLinkTarget();
    process.terminate();  // SIGKILL to the positive pid checked above
    int status = 0;
    ::waitpid(process.pid(), &status, 0);
    EXPECT_TRUE(open.contains(QStringLiteral("/tmp/frk.lg"))) << open.join(' ').toStdString();
}
