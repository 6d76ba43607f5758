#pragma once
// The update workflow driven as the dialog drives it, without a window: a
// view that records what a user would see, prompts answered at once, the
// recording test host with an installed configuration, and the sample
// update server served by nginx.
#include <atomic>
#include <memory>

#include <QFile>
#include <QThread>
#include <QUrl>
#include <zlib.h>
#include <gtest/gtest.h>

#include "support/SampleUpdateServer.h"
#include "transfer/DownloadHttp.h"
#include "transfer/support/RealServers.h"
#include "transfer/support/WaitFor.h"
#include "ui/UiTestHost.h"
#include "update/DownloadRun.h"
#include "update/FileToDl.h"
#include "update/ListChain.h"
#include "update/SaveParamDownload.h"
#include "update/UpdatePrompts.h"
#include "update/UpdateView.h"
#include "update/UpdateWorkflow.h"

inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}

inline QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

class RecordingView : public IUpdateView {
public:
    struct Row {
        dlModule record;
        std::vector<dlModule> children;
        bool ticked = false;
    };
    QString status, info, startText;
    std::map<Control, bool> enabled;
    bool busy = false;
    int progressMaximum = 0, progressValue = 0;
    std::vector<Row> rows;

    void tick(const char* name)
    {
        for (Row& row : rows)
            row.ticked = row.ticked || dlText(row.record.name) == name;
    }
    // "name (size)" of each row as the window lists it, a configuration's
    // modules in <>.
    QStringList rowNames() const
    {
        const auto shown = [](const dlModule& record) {
            const QString size = QString::fromLocal8Bit(dlText(record.sizeText));
            return QString::fromLocal8Bit(dlText(record.name)) + (size.isEmpty() ? QString() : " (" + size + ')');
        };
        QStringList names;
        for (const Row& row : rows) {
            QString text = shown(row.record);
            for (const dlModule& child : row.children)
                text += " <" + shown(child) + '>';
            names << text;
        }
        return names;
    }

    bool hasWindow() const override { return true; }
    void setStatus(const QString& text, int) override { status = text; }
    void setInfo(const QString& text) override { info = text; }
    void setEnabled(Control control, bool on) override { enabled[control] = on; }
    void setStartText(const QString& text) override { startText = text; }
    void setBusy(bool on) override { busy = on; }
    void showProgress(int maximum) override { progressMaximum = maximum; }
    void setProgressMaximum(int maximum) override { progressMaximum = maximum; }
    void setProgressValue(int value) override { progressValue = qMin(value, progressMaximum); }
    void resetProgress() override { progressMaximum = progressValue = 0; }
    void clearRows() override { rows.clear(); }
    void addConfigurationRow(const dlModule& configuration, const dlListModule& modules) override
    {
        rows.push_back({configuration, {modules.modules, modules.modules + modules.count}});
    }
    void addModuleRow(const dlModule& module, const QString&) override { rows.push_back({module, {}}); }
    int rowCount() const override { return int(rows.size()); }
    std::vector<dlModule> checkedRecords() const override
    {
        std::vector<dlModule> out;
        for (const Row& row : rows)
            if (row.ticked && row.children.empty())
                out.push_back(row.record);
            else if (row.ticked)
                out.insert(out.end(), row.children.begin(), row.children.end());
        return out;
    }
    void uncheckAll() override { for (Row& row : rows) row.ticked = false; }
    void selectFirstRow() override {}
    void clearDescription() override {}
    void changeState() override
    {
        enabled[Start] = isSelect();
        enabled[Refresh] = !isSelect();
    }
    bool isSelect() const override { return !checkedRecords().empty(); }
};

// Answers every box at once with its first button and keeps "title | text".
// The installation runs on a worker as the dialog's does; Cancel is pressed
// once cancelWhenExists appears.
class ScriptedPrompts : public IUpdatePrompts {
public:
    CUpdateWorkflow* flow = nullptr;
    QStringList boxes;
    QStringList report;  // "name ver" per installed record, then the refused files' lines
    bool installationRan = false;
    QString cancelWhenExists;

    void information(const QString& title, const QString& text) override { boxes << title + " | " + text; }
    void critical(const QString& title, const QString& text) override { boxes << title + " | " + text; }
    int question(const QString& title, const QString& text) override
    {
        boxes << title + " | " + text;
        return 0;
    }
    int runInstallation(bool& cancelled) override
    {
        installationRan = true;
        std::atomic<bool> stop{false};
        int result = -1;
        std::unique_ptr<QThread> worker(QThread::create(
            [&] { result = flow->installationWork({}, {}, [&stop] { return stop.load(); }); }));
        worker->start();
        waitFor([&] {
            if (!cancelWhenExists.isEmpty() && QFile::exists(cancelWhenExists))
                stop = true;
            return worker->isFinished();
        });
        cancelled = stop;
        return cancelled ? -1 : result;
    }
    void showReport(const std::vector<dlModule>& installed, const QStringList& refused) override
    {
        for (const dlModule& record : installed)
            report << QString::fromLocal8Bit(dlText(record.name) + ' ' + dlText(record.version));
        report << refused;
    }
};

class WorkflowFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(root.isValid());
        serverRoot = root.filePath(QStringLiteral("server"));
        publishSampleServer(serverRoot, 3000);
        host = std::make_unique<UiTestHost>(root.path());
        qputenv("VELMORA_UPDATER", QFile::encodeName(root.filePath("no-updater")));
        // Installed: configuration Standard 3.3.8 in use, with an older
        // charts and quotes module and news at the offered version.
        host->products.addConfiguration("Standard", 3, 3, 8, true, 7,
                                        {installedModule("charts.so", 1, 4, 0),
                                         installedModule("news.so", 1, 0, 0),
                                         installedModule("quotes.so", 2, 0, 0)});
    }
    void TearDown() override
    {
        flow.reset();
        host.reset();
        qunsetenv("VELMORA_UPDATER");
    }

    void startNginx()
    {
        nginx = std::make_unique<NginxServer>(serverRoot);
        ASSERT_TRUE(nginx->started()) << nginx->log().toStdString();
        useServer(nginx->baseUrl().toLatin1());
    }
    void useServer(const QByteArray& url)
    {
        writeText(host->configDir + QStringLiteral("/download.cfg"), "[Address]\r\nPath=" + url + "\r\n");
    }

    // Makes the workflow as the dialog does at the host's "open" command.
    CUpdateWorkflow& open()
    {
        CUpdateWorkflow::Environment environment;
        environment.link = CHostLink(&TestHost::send, nullptr);
        environment.view = &view;
        environment.prompts = &prompts;
        flow = std::make_unique<CUpdateWorkflow>(environment);
        prompts.flow = flow.get();
        flow->askConnectState();
        flow->askInstalledConfigurations();
        flow->setUpFolders();
        return *flow;
    }
    // Opens with the window and waits for the lists.
    bool openAndSearch()
    {
        open();
        return until(&CUpdateWorkflow::SignalListsShown, [this] { flow->windowOpened(); }) != -2;
    }
    // Does start and waits for the signal; the signal's value, or -2.
    template <class Signal, class Start>
    int until(Signal signal, Start start)
    {
        int seen = -2;
        const QMetaObject::Connection connection =
            QObject::connect(flow.get(), signal, flow.get(), [&seen](auto... value) {
                seen = 0;
                ((seen = value), ...);
            });
        start();
        waitFor([&seen] { return seen != -2; });
        QObject::disconnect(connection);
        return seen;
    }
    int startAndWaitForInstallation()
    {
        return until(&CUpdateWorkflow::SignalInstallationStarts, [this] { flow->run().clickStartDownload(); });
    }

    // "path|range" of each request for a file, in the order nginx answered them.
    QStringList fileRequests() const
    {
        QStringList result;
        for (const QString& line : nginx->accessLog()) {
            const QStringList parts = line.split('|');
            const QString path = QUrl(parts.value(0).section(' ', 1, 1)).path();
            if (path.startsWith(QLatin1String("/files/")))
                result << path + '|' + parts.value(2);
        }
        return result;
    }
    // Installation by the updater at path into installDir (folder type 1),
    // of gzip files served as the publishing tool writes them.
    void installWithTheRealUpdater(const char* path)
    {
        installDir = root.filePath(QStringLiteral("install/bin"));
        QDir().mkpath(installDir);
        host->folders[1] = installDir;
        for (const char* name : {"quotes.so", "charts.so", "orders.so"}) {
            programs[name] = patternBytes(64 * 1024, name[0]);
            gzFile out = gzopen(QFile::encodeName(serverRoot + "/files/" + name + ".gz"), "wb");
            gzwrite(out, programs[name].constData(), unsigned(programs[name].size()));
            gzclose(out);
        }
        qputenv("VELMORA_UPDATER", path);
    }

    QString downloaded(const QString& name) const { return host->downloadDir + '/' + name; }
    QByteArray served(const QString& name) const { return fileBytes(serverRoot + "/files/" + name); }
    CSaveParamDownload state() const { return CSaveParamDownload(host->downloadDir); }

    dlModule storedRecord(const char* name, const char* version, const char* serverPath, const char* type = "1")
    {
        dlModule record = emptyDlModule();
        setDlText(record.name, name);
        setDlText(record.version, version);
        setDlText(record.versionExtra, "3.3.8");
        setDlText(record.type, type);
        setDlText(record.serverPath, serverPath);
        setDlText(record.localPath, downloaded(QFileInfo(serverPath).fileName()).toLocal8Bit());
        return record;
    }
    void storeRun(const std::vector<std::pair<dlModule, int>>& records)
    {
        CSaveParamDownload stored = state();
        stored.createLastDownload(int(records.size()));
        for (const auto& [record, stage] : records)
            stored.saveLastDownloadModule(record, stage);
    }

    QTemporaryDir root;
    QString serverRoot;
    std::unique_ptr<UiTestHost> host;
    std::unique_ptr<NginxServer> nginx;
    QString installDir;
    std::map<QString, QByteArray> programs;  // what each installed program must be
    RecordingView view;
    ScriptedPrompts prompts;
    std::unique_ptr<CUpdateWorkflow> flow;
};
