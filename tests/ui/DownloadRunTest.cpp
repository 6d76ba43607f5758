// Download runs through the dialog against nginx: manual runs, pause and
// resume, stop, missing files, the off-line switch, continuation from the
// state file and the automatic mode.
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>

#include "transfer/DownloadHttp.h"
#include "transfer/support/FaultServer.h"
#include "ui/UiFixture.h"
#include "update/FileToDl.h"
#include "update/SaveParamDownload.h"

namespace {

class Run : public UiFixture {
protected:
    // Runs until the dialog hands its files to installation.
    bool waitForInstallation(CDownloadWidget* widget, int* fetched = nullptr)
    {
        int count = -1;
        QObject::connect(widget, &CDownloadWidget::SignalInstallationStarts, widget,
                         [&count](int n) { count = n; });
        const bool reached = waitFor([&count] { return count >= 0; });
        if (fetched)
            *fetched = count;
        return reached;
    }

    // "path|range" of each request for a file, in the order nginx finished them.
    QStringList fileRequestPaths() const
    {
        QStringList result;
        for (const QString& request : fileRequests())
            result << request.section('|', 0, 0) + '|' + request.section('|', 2, 2);
        return result;
    }

    dlModule storedRecord(const char* name, const char* version, const char* serverPath)
    {
        dlModule record = emptyDlModule();
        setDlText(record.name, name);
        setDlText(record.version, version);
        setDlText(record.versionExtra, "3.3.8");
        setDlText(record.type, "1");
        setDlText(record.serverPath, serverPath);
        setDlText(record.localPath, downloaded(QFileInfo(serverPath).fileName()).toLocal8Bit());
        return record;
    }

    CSaveParamDownload state() const { return CSaveParamDownload(host->downloadDir); }
};

}  // namespace

TEST_F(Run, NothingTickedSendsNoProbe)
{
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    widget->clickStartDownload();
    EXPECT_EQ(0, widget->chosen().getModuleCount());
    EXPECT_FALSE(widget->http()->isBusy());
    EXPECT_TRUE(fileRequests().isEmpty());
}

TEST_F(Run, ManualRunProbesEverySizeInSetOrderThenFetchesAndRecords)
{
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "Standard");  // a configuration brings its modules
    tick(widget, "orders.so");
    widget->startControl()->click();
    EXPECT_EQ(QStringLiteral("C0082"), widget->startControl()->text());  // Pause

    int fetched = -1;
    ASSERT_TRUE(waitForInstallation(widget, &fetched));
    EXPECT_EQ(2, fetched);
    EXPECT_EQ((QStringList{"/files/quotes.so.gz|bytes", "/files/orders.so.gz|bytes",
                           "/files/quotes.so.gz|-", "/files/orders.so.gz|-"}),
              fileRequestPaths());
    EXPECT_EQ(fileBytes(serverRoot + "/files/quotes.so.gz"), fileBytes(downloaded("quotes.so.gz")));
    EXPECT_EQ(fileBytes(serverRoot + "/files/orders.so.gz"), fileBytes(downloaded("orders.so.gz")));

    CSaveParamDownload stored = state();
    EXPECT_EQ(2, stored.getCountLastDownloadModule());
    EXPECT_EQ(2, stored.getCountStateLastDownloadModule(dlStateFetched));
    dlModule records[2];
    ASSERT_EQ(2, stored.getLastDownloadModule(dlStateFetched, 2, records));
    EXPECT_EQ(QByteArray("quotes.so"), dlText(records[0].name));
    EXPECT_EQ(QByteArray("/files/orders.so.gz"), dlText(records[1].serverPath));
    EXPECT_EQ(QStringLiteral("MD0011"), widget->startControl()->text());
    EXPECT_EQ(0, widget->chosen().getModuleCount());
}

// The host knows the module and its file already lies complete in the
// download folder: it is probed, recorded as fetched and not fetched again.
TEST_F(Run, AKnownModuleWhoseFileIsCompleteIsNotFetchedAgain)
{
    startNginx();
    host->knowsEveryModule = true;
    QDir().mkpath(host->downloadDir);
    writeText(downloaded("orders.so.gz"), fileBytes(serverRoot + "/files/orders.so.gz"));
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "Standard");
    tick(widget, "orders.so");
    widget->startControl()->click();

    int fetched = -1;
    ASSERT_TRUE(waitForInstallation(widget, &fetched));
    EXPECT_EQ(2, fetched);
    EXPECT_EQ((QStringList{"/files/quotes.so.gz|bytes", "/files/orders.so.gz|bytes", "/files/quotes.so.gz|-"}),
              fileRequestPaths());
    EXPECT_EQ(fileBytes(serverRoot + "/files/orders.so.gz"), fileBytes(downloaded("orders.so.gz")));
    EXPECT_EQ(2, state().getCountStateLastDownloadModule(dlStateFetched));
}

// Whether the host has the module installed or not: a file on disk is only
// taken as fetched when it is complete.
class PauseRun : public Run, public ::testing::WithParamInterface<bool> {};

TEST_P(PauseRun, PauseKeepsThePartialFileAndStartResumesItWithRange)
{
    host->knowsEveryModule = GetParam();
    const QByteArray body = patternBytes(5000, 'p');
    const QByteArray listBody =
        "pause.so,1.0.0,3.3.8,1,/d.txt,/files/pause.so.gz,2026-01-01,5\n";
    auto header = [](int length, const QByteArray& extra = QByteArray()) {
        return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(length) + "\r\n" + extra
            + "\r\n";
    };
    ScriptedReply stalled;
    stalled.bytes = header(5000) + body.left(3000);  // then silence
    stalled.closeAfter = false;
    ScriptedReply rest;
    rest.bytes = "HTTP/1.1 206 Partial Content\r\nContent-Length: 2256\r\nContent-Range: bytes "
                 "2744-4999/5000\r\n\r\n"
        + body.mid(2744);
    FaultServer server({okReply(""), okReply(listBody), okReply("desc"),
                        ScriptedReply{header(5000), true, false}, stalled,
                        ScriptedReply{header(5000), true, false}, rest});
    writeSettings("[Address]\r\nPath=http://127.0.0.1:" + QByteArray::number(server.port()) + "\r\n");

    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "pause.so");
    widget->startControl()->click();
    ASSERT_TRUE(waitFor([widget] { return widget->progress()->value() == 3000; }));

    widget->startControl()->click();  // Pause
    EXPECT_EQ(QStringLiteral("MD0011"), widget->startControl()->text());
    EXPECT_TRUE(widget->tree()->isEnabled());
    EXPECT_FALSE(widget->stopControl()->isEnabled());
    EXPECT_EQ(QStringLiteral("C0082"), widget->statusLine()->currentMessage());
    // The aborted fetch closes its file once the connection has wound down.
    EXPECT_TRUE(waitFor([this] { return QFileInfo(downloaded("pause.so.gz")).size() == 3000; }));

    widget->startControl()->click();  // Start again
    ASSERT_TRUE(waitForInstallation(widget));
    ASSERT_EQ(7, server.requests.size());
    EXPECT_TRUE(server.requests[5].contains("\r\nRange: bytes\r\n"));  // the probe
    EXPECT_TRUE(server.requests[6].contains("\r\nRange: bytes=2744-\r\n"))
        << server.requests[6].constData();
    EXPECT_EQ(body, fileBytes(downloaded("pause.so.gz")));
}

INSTANTIATE_TEST_SUITE_P(HostKnowsTheModule, PauseRun, ::testing::Bool());

// Going off-line in the middle of a fetch aborts it; back on-line, the run
// goes on from the state file and resumes the file where it stopped.
TEST_F(Run, OffLineMidFetchAbortsAndOnLineContinuesTheRun)
{
    const QByteArray body = patternBytes(5000, 'o');
    const QByteArray listBody = "cut.so,1.0.0,3.3.8,1,/d.txt,/files/cut.so.gz,2026-01-01,5\n";
    const QByteArray whole = "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n";
    ScriptedReply stalled{whole + body.left(3000), false, false};
    ScriptedReply rest{"HTTP/1.1 206 Partial Content\r\nContent-Length: 2256\r\nContent-Range: bytes "
                       "2744-4999/5000\r\n\r\n" + body.mid(2744)};
    FaultServer server({okReply(""), okReply(listBody), okReply("desc"), ScriptedReply{whole, true, false},
                        stalled, okReply(listBody), ScriptedReply{whole, true, false}, rest});
    writeSettings("[Address]\r\nPath=http://127.0.0.1:" + QByteArray::number(server.port()) + "\r\n");

    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "cut.so");
    widget->startControl()->click();
    ASSERT_TRUE(waitFor([widget] { return widget->progress()->value() == 3000; }));

    mwiSetStateConnect offLine{0};
    host->deliver(HostMsg::SetConnectState, reinterpret_cast<intptr_t>(&offLine));
    EXPECT_TRUE(waitFor([this] { return QFileInfo(downloaded("cut.so.gz")).size() == 3000; }));
    EXPECT_EQ(5, server.requests.size());

    mwiSetStateConnect onLine{1};
    host->deliver(HostMsg::SetConnectState, reinterpret_cast<intptr_t>(&onLine));
    ASSERT_TRUE(waitForInstallation(widget));
    ASSERT_EQ(8, server.requests.size());
    EXPECT_TRUE(server.requests[7].contains("\r\nRange: bytes=2744-\r\n")) << server.requests[7].constData();
    EXPECT_EQ(body, fileBytes(downloaded("cut.so.gz")));
}

TEST_F(Run, StopDeletesTheRunsFilesAndClearsTheState)
{
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    tick(widget, "charts.so");
    widget->startControl()->click();
    ASSERT_TRUE(waitForInstallation(widget));
    ASSERT_TRUE(QFile::exists(downloaded("charts.so.gz")));
    writeText(downloaded("keep.bin"), "not part of the run");
    tick(widget, "orders.so");

    widget->stopControl()->setEnabled(true);
    widget->stopControl()->click();
    EXPECT_FALSE(QFile::exists(downloaded("charts.so.gz")));
    EXPECT_TRUE(QFile::exists(downloaded("keep.bin")));
    EXPECT_EQ(0, state().getCountLastDownloadModule());
    for (int i = 0; i < widget->tree()->topLevelItemCount(); ++i)
        EXPECT_EQ(Qt::Unchecked, widget->tree()->topLevelItem(i)->checkState(0));
    EXPECT_EQ(QStringLiteral("Aborted"), widget->statusLine()->currentMessage());
    EXPECT_FALSE(widget->startControl()->isEnabled());
}

TEST_F(Run, MissingFilesEndAfterThreeRetriesWithTheDownloadErrorBox)
{
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    for (const char* name : {"quotes.so.gz", "charts.so.gz", "orders.so.gz"})
        QFile::remove(serverRoot + "/files/" + name);
    tick(widget, "Standard");
    tick(widget, "charts.so");
    tick(widget, "orders.so");

    widget->startControl()->click();
    ASSERT_TRUE(waitFor([this] { return !answerer->seen.empty(); }));
    EXPECT_EQ(QStringLiteral("MD0048"), answerer->seen[0].title);
    EXPECT_EQ(QStringLiteral("MD0049Message"), answerer->seen[0].text);
    // The first try and three more, each ending at the first missing file.
    EXPECT_EQ(4, fileRequestPaths().count(QStringLiteral("/files/quotes.so.gz|-")));
    EXPECT_EQ(0, fileRequestPaths().count(QStringLiteral("/files/charts.so.gz|-")));
    EXPECT_FALSE(QFile::exists(downloaded("quotes.so.gz")));  // a 404 leaves no file
    EXPECT_EQ(1u, answerer->seen.size());  // installation is never reached
}

TEST_F(Run, OffLineSendsNothingAndTheRunContinuesWhenTheHostIsOnLine)
{
    startNginx();
    host->onLine = false;
    {
        CSaveParamDownload stored = state();
        stored.createLastDownload(1);
        stored.saveLastDownloadModule(storedRecord("charts.so", "1.5.0", "/files/charts.so.gz"),
                                      dlStateToFetch);
    }
    CDownloadWidget* widget = openDialog();
    widget->startTimerIsOutTime();  // the automatic start fires
    EXPECT_TRUE(nginx->accessLog().isEmpty());
    EXPECT_FALSE(widget->http()->isBusy());

    mwiSetStateConnect onLine{1};
    host->deliver(HostMsg::SetConnectState, reinterpret_cast<intptr_t>(&onLine));
    ASSERT_TRUE(waitForInstallation(widget));
    EXPECT_EQ(fileBytes(serverRoot + "/files/charts.so.gz"), fileBytes(downloaded("charts.so.gz")));
    EXPECT_EQ(1, state().getCountStateLastDownloadModule(dlStateFetched));
}

TEST_F(Run, ContinuationFetchesOnlyWhatTheStoredRunLacks)
{
    startNginx();
    QDir().mkpath(host->downloadDir);
    const QByteArray orders = fileBytes(serverRoot + "/files/orders.so.gz");
    writeText(downloaded("charts.so.gz"), fileBytes(serverRoot + "/files/charts.so.gz"));
    writeText(downloaded("orders.so.gz"), orders.left(100000));  // cut off by a killed host
    {
        CSaveParamDownload stored = state();
        stored.createLastDownload(2);
        stored.saveLastDownloadModule(storedRecord("charts.so", "1.5.0", "/files/charts.so.gz"),
                                      dlStateFetched);
        stored.saveLastDownloadModule(storedRecord("orders.so", "4.0.0", "/files/orders.so.gz"),
                                      dlStateToFetch);
    }
    CDownloadWidget* widget = openDialog();
    widget->startTimerIsOutTime();
    ASSERT_TRUE(waitForInstallation(widget));

    EXPECT_EQ((QStringList{"/files/orders.so.gz|bytes", "/files/orders.so.gz|bytes=99744-"}),
              fileRequestPaths());
    EXPECT_TRUE(fileRequests().last().contains(QStringLiteral("|206|")));
    EXPECT_EQ(orders, fileBytes(downloaded("orders.so.gz")));
    EXPECT_EQ(2, state().getCountStateLastDownloadModule(dlStateFetched));
}

TEST_F(Run, AutomaticModeChoosesTheNewerModulesAndAsks)
{
    startNginx();
    QDir().mkpath(host->downloadDir);
    state().saveStartParam(true, true);
    CDownloadWidget* widget = openDialog();
    widget->startTimerIsOutTime();
    int fetched = -1;
    ASSERT_TRUE(waitForInstallation(widget, &fetched));

    ASSERT_EQ(2u, answerer->seen.size());  // the question, then installation's "Update failed"
    EXPECT_EQ(QStringLiteral("MD0020"), answerer->seen[0].title);
    EXPECT_EQ(QStringLiteral("MD0021"), answerer->seen[0].text);
    EXPECT_EQ(3, fetched);
    for (const char* name : {"quotes.so.gz", "charts.so.gz", "orders.so.gz"})
        EXPECT_EQ(fileBytes(serverRoot + "/files/" + name), fileBytes(downloaded(name))) << name;
    EXPECT_FALSE(QFile::exists(downloaded("news.so.gz")));
    dlModule records[3];
    ASSERT_EQ(3, state().getLastDownloadModule(dlStateFetched, 3, records));
    EXPECT_EQ(QByteArray("Standard"), dlText(records[0].auxPath));
}

TEST_F(Run, AutomaticModeWithoutACurrentConfigurationSaysSo)
{
    startNginx();
    host->products.configs[0].current = 0;
    QDir().mkpath(host->downloadDir);
    state().saveStartParam(true, false);
    CDownloadWidget* widget = openDialog();
    widget->startTimerIsOutTime();
    ASSERT_TRUE(waitFor([this] { return !answerer->seen.empty(); }));
    EXPECT_EQ(QStringLiteral("MD0050"), answerer->seen[0].title);
    EXPECT_EQ(QStringLiteral("MD0051"), answerer->seen[0].text);
    EXPECT_TRUE(fileRequests().isEmpty());
}
