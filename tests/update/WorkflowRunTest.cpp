// The workflow's rules without a window or with the view alone: manual runs,
// pause and off-line interruptions, Stop, the three-failure rule,
// continuation from the state file, the automatic mode. The list chain's rows
// are ListFaultsTest.cpp's.
#include <QDir>
#include <QFileInfo>

#include "transfer/support/FaultServer.h"
#include "update/AutoChoice.h"
#include "update/WorkflowFixture.h"

namespace {

class Workflow : public WorkflowFixture {};

}  // namespace

// Every chosen size is probed first, in the set's order, then the files are
// fetched; a file the host knows that already lies complete is not fetched.
TEST_F(Workflow, ManualRunsProbeEverySizeThenFetchOnlyWhatIsNotCompleteOnDisk)
{
    struct Case {
        const char* name;
        bool hostKnowsModules;
        bool ordersOnDisk;
        QStringList requests;
    };
    const Case cases[] = {
        {"nothing on disk", false, false,
         {"/files/quotes.so.gz|bytes", "/files/orders.so.gz|bytes", "/files/quotes.so.gz|-",
          "/files/orders.so.gz|-"}},
        {"orders complete and known", true, true,
         {"/files/quotes.so.gz|bytes", "/files/orders.so.gz|bytes", "/files/quotes.so.gz|-"}},
    };
    startNginx();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        host->knowsEveryModule = c.hostKnowsModules;
        QDir(host->downloadDir).removeRecursively();
        QDir().mkpath(host->downloadDir);
        if (c.ordersOnDisk)
            writeText(downloaded("orders.so.gz"), served("orders.so.gz"));
        ASSERT_TRUE(openAndSearch());
        const int before = fileRequests().size();
        view.tick("Standard");
        view.tick("orders.so");
        EXPECT_EQ(2, startAndWaitForInstallation());
        EXPECT_EQ(c.requests, fileRequests().mid(before));
        for (const char* name : {"quotes.so.gz", "orders.so.gz"})
            EXPECT_EQ(served(name), fileBytes(downloaded(name))) << name;
        dlModule records[2];
        ASSERT_EQ(2, state().getLastDownloadModule(dlStateFetched, 2, records));
        EXPECT_EQ(QByteArray("quotes.so"), dlText(records[0].name));
        EXPECT_EQ(QStringLiteral("MD0011"), view.startText);
        EXPECT_EQ(0, flow->chosen().getModuleCount());
        EXPECT_EQ(QStringList{"MD0050 | MD0053"}, prompts.boxes);  // no updater here
        prompts.boxes.clear();
        flow.reset();
    }
}

TEST_F(Workflow, NothingTickedSendsNoProbe)
{
    startNginx();
    ASSERT_TRUE(openAndSearch());
    flow->run().clickStartDownload();
    EXPECT_EQ(0, flow->chosen().getModuleCount());
    EXPECT_FALSE(flow->http().isBusy());
    EXPECT_TRUE(fileRequests().isEmpty());
}

// A fetch stopped part way, by Pause or by the host going off-line, keeps
// its bytes; going on (Start, or back on-line, which fetches the module list
// again) resumes the file with a range from where it stopped.
TEST_F(Workflow, AnInterruptedFetchResumesWhereItStopped)
{
    struct Case {
        const char* name;
        bool hostKnowsModules;
        bool offLine;  // else Pause
    };
    const Case cases[] = {{"pause, module unknown", false, false},
                          {"pause, module known", true, false},
                          {"off-line", false, true}};
    const QByteArray body = patternBytes(5000, 'p');
    const QByteArray list = "cut.so,1.0.0,3.3.8,1,/d.txt,/files/cut.so.gz,2026-01-01,5\n";
    const QByteArray whole = "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n";
    const ScriptedReply probe{whole, true, false};
    const ScriptedReply stalled{whole + body.left(3000), false, false};
    const ScriptedReply rest{"HTTP/1.1 206 Partial Content\r\nContent-Length: 2256\r\n"
                             "Content-Range: bytes 2744-4999/5000\r\n\r\n" + body.mid(2744)};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        host->knowsEveryModule = c.hostKnowsModules;
        QDir(host->downloadDir).removeRecursively();
        QList<ScriptedReply> replies{okReply(""), okReply(list), okReply("desc"), probe, stalled};
        if (c.offLine)
            replies.push_back(okReply(list));
        replies << probe << rest;
        FaultServer server(replies);
        useServer("http://127.0.0.1:" + QByteArray::number(server.port()));
        ASSERT_TRUE(openAndSearch());
        view.tick("cut.so");
        flow->run().clickStartDownload();
        ASSERT_TRUE(waitFor([this] { return view.progressValue == 3000; }));

        if (c.offLine) {
            flow->setStateConnect(0);
        } else {
            flow->run().clickStartDownload();  // Pause
            EXPECT_EQ(QStringLiteral("MD0011"), view.startText);
            EXPECT_TRUE(view.enabled[IUpdateView::Tree]);
            EXPECT_FALSE(view.enabled[IUpdateView::Stop]);
            EXPECT_EQ(QStringLiteral("C0082"), view.status);
        }
        // The aborted fetch closes its file once the connection has wound down.
        EXPECT_TRUE(waitFor([this] { return QFileInfo(downloaded("cut.so.gz")).size() == 3000; }));
        EXPECT_EQ(5, server.requests.size());

        EXPECT_EQ(1, until(&CUpdateWorkflow::SignalInstallationStarts, [&] {
            if (c.offLine)
                flow->setStateConnect(1);
            else
                flow->run().clickStartDownload();
        }));
        ASSERT_EQ(int(replies.size()), server.requests.size());
        EXPECT_TRUE(server.requests.last().contains("\r\nRange: bytes=2744-\r\n"))
            << server.requests.last().constData();
        EXPECT_EQ(body, fileBytes(downloaded("cut.so.gz")));
        flow.reset();
    }
}

TEST_F(Workflow, StopDeletesTheRunsFilesAndClearsTheState)
{
    startNginx();
    ASSERT_TRUE(openAndSearch());
    view.tick("charts.so");
    ASSERT_EQ(1, startAndWaitForInstallation());
    ASSERT_TRUE(QFile::exists(downloaded("charts.so.gz")));
    writeText(downloaded("keep.bin"), "not part of the run");
    view.tick("orders.so");

    flow->run().clickStopDownload();
    EXPECT_FALSE(QFile::exists(downloaded("charts.so.gz")));
    EXPECT_TRUE(QFile::exists(downloaded("keep.bin")));
    EXPECT_EQ(0, state().getCountLastDownloadModule());
    EXPECT_FALSE(view.isSelect());
    EXPECT_EQ(QStringLiteral("Aborted"), view.status);
    EXPECT_FALSE(view.enabled[IUpdateView::Start]);
}

// The first try and three more, each ending at the first missing file, then
// the error box; installation is never reached.
TEST_F(Workflow, MissingFilesEndAfterThreeRetriesWithTheDownloadErrorBox)
{
    startNginx();
    ASSERT_TRUE(openAndSearch());
    for (const char* name : {"quotes.so.gz", "charts.so.gz", "orders.so.gz"})
        QFile::remove(serverRoot + "/files/" + name);
    view.tick("Standard");
    view.tick("charts.so");

    flow->run().clickStartDownload();
    ASSERT_TRUE(waitFor([this] { return !prompts.boxes.isEmpty(); }));
    EXPECT_EQ(QStringList{"MD0048 | MD0049Message"}, prompts.boxes);
    EXPECT_EQ(4, fileRequests().count(QStringLiteral("/files/quotes.so.gz|-")));
    EXPECT_EQ(0, fileRequests().count(QStringLiteral("/files/charts.so.gz|-")));
    EXPECT_FALSE(QFile::exists(downloaded("quotes.so.gz")));  // a 404 leaves no file
    EXPECT_FALSE(prompts.installationRan);
}

// The automatic start goes on with a stored run: off-line it sends nothing
// and goes on when the host is on-line; it fetches only what the run lacks,
// resuming a file a killed host left cut off (the whole-run tests check the
// resumed bytes).
TEST_F(Workflow, ContinuationFetchesOnlyWhatTheStoredRunLacks)
{
    startNginx();
    host->onLine = false;
    QDir().mkpath(host->downloadDir);
    writeText(downloaded("charts.so.gz"), served("charts.so.gz"));
    writeText(downloaded("orders.so.gz"), served("orders.so.gz").left(100000));
    storeRun({{storedRecord("charts.so", "1.5.0", "/files/charts.so.gz"), dlStateFetched},
              {storedRecord("orders.so", "4.0.0", "/files/orders.so.gz"), dlStateToFetch}});
    open();
    flow->startTimerIsOutTime();
    EXPECT_TRUE(nginx->accessLog().isEmpty());
    EXPECT_FALSE(flow->http().isBusy());

    EXPECT_EQ(2, until(&CUpdateWorkflow::SignalInstallationStarts, [this] { flow->setStateConnect(1); }));
    EXPECT_EQ((QStringList{"/files/orders.so.gz|bytes", "/files/orders.so.gz|bytes=99744-"}),
              fileRequests());
}

// Only the three files newer than the installed ones are taken (news.so is at
// its installed version). A stored run with fewer records than its count (a
// terminal killed while writing it) is not continued, which would install
// part of it and report the rest installed: the automatic mode chooses again.
TEST_F(Workflow, AutomaticModeChoosesTheNewerModulesOverATornRunAndAsksOrSaysWhyItCannot)
{
    startNginx();
    QDir().mkpath(host->downloadDir);
    state().saveStartParam(true, true);
    CSaveParamDownload stored = state();
    stored.createLastDownload(3);
    stored.saveLastDownloadModule(storedRecord("charts.so", "1.5.0", "/files/charts.so.gz"), dlStateToFetch);
    open();
    EXPECT_EQ(3, until(&CUpdateWorkflow::SignalInstallationStarts, [this] { flow->startTimerIsOutTime(); }));
    EXPECT_EQ((QStringList{"MD0020 | MD0021", "MD0050 | MD0053"}), prompts.boxes);
    dlModule records[3];
    ASSERT_EQ(3, state().getLastDownloadModule(dlStateFetched, 3, records));
    EXPECT_EQ(QByteArray("Standard"), dlText(records[0].auxPath));

    // Without a configuration in use it says so and asks the server nothing.
    prompts.boxes.clear();
    state().clearLastDownload();
    host->products.configs[0].current = 0;
    const int requests = nginx->accessLog().size();
    flow->automatic().startAutoDownload();
    EXPECT_EQ(QStringList{"MD0050 | MD0051"}, prompts.boxes);
    EXPECT_EQ(requests, nginx->accessLog().size());
}
