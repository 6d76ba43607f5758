// A terminal killed (SIGKILL) at each step of an automatic update with the
// release check on, then started again: the list fetch, the size probes, a
// fetch, the unpacking and the hand-over to the updater. Every restart must
// complete the run with every installed file byte for byte the release's,
// and nothing else in the installed tree. quotes.so.gz is served slowly so
// that the steps around it can be caught while they happen.
#include <QProcess>

#include "WholeRunFixture.h"

namespace {

struct Step {
    const char* name;
    // True once the run is at the step, judged from the server's requests,
    // the download folder, the host's log and the installed tree.
    std::function<bool(const class CrashSafety&)> reached;
};

class CrashSafety : public WholeRunFixture, public ::testing::WithParamInterface<Step> {
public:
    bool requested(const char* what) const { return server->accessLog().join('\n').contains(what); }
};

TEST_P(CrashSafety, ARestartAfterAKillCompletesTheRunWithTheReleasesFiles)
{
    signature = "[Signature]\r\nPublicKey=" + readFile(kSamples + "/signing/release.pub").split('\n').value(1) + "\r\n";
    ASSERT_NO_FATAL_FAILURE(startServer(kFileServerFamilies[0], "/files/quotes.so.gz", 4096));
    writeAutomaticStart(downloadDir, false);
    {
        QProcess host;
        ASSERT_NO_FATAL_FAILURE(startHost(host, kAutomaticScript));
        const bool reached = waitFor([&] {
            host.readAll();
            return GetParam().reached(*this) || host.state() == QProcess::NotRunning;
        });
        ASSERT_TRUE(reached && host.state() == QProcess::Running) << "the run ended before the step\n"
                                                                   << qPrintable(hostLog());
        host.kill();
        host.waitForFinished(-1);
    }
    WholeRun run;
    ASSERT_NO_FATAL_FAILURE(runHost(kAutomaticScript, run));
    ASSERT_EQ(0, run.exitCode) << qPrintable(run.transcript());
    EXPECT_TRUE(run.log.contains("Installation ended: ")) << qPrintable(run.log);
    expectInstalled(releaseFiles(kUpdatedByAutomaticRun));
}

INSTANTIATE_TEST_SUITE_P(
    Steps, CrashSafety,
    ::testing::Values(
        Step{"ListFetch", [](const CrashSafety& t) { return t.requested("configDesc.txt"); }},
        Step{"Probe", [](const CrashSafety& t) { return t.requested("|bytes|"); }},
        Step{"Fetch", [](const CrashSafety& t) { return QFileInfo(t.downloadDir + "/quotes.so.gz").size() > 0; }},
        Step{"Unpacking", [](const CrashSafety& t) { return t.hostLog().contains("Download complete"); }},
        Step{"HandOver", [](const CrashSafety& t) { return readTree(t.installedDir) != t.installedBefore; }}),
    [](const ::testing::TestParamInfo<Step>& info) { return std::string(info.param.name); });

}  // namespace
