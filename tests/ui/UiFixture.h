#pragma once
// A whole update setting for the dialog's tests: an update server tree served
// by nginx, a host with an installed configuration, and helpers that open the
// dialog and its window the way a host does.
#include <memory>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QUrl>
#include <gtest/gtest.h>

#include "module/DownloadModule.h"
#include "protocol/HostMessages.h"
#include "support/SampleUpdateServer.h"
#include "transfer/support/RealServers.h"
#include "transfer/support/WaitFor.h"
#include "ui/DownloadWidget.h"
#include "ui/UiTestHost.h"

inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}

inline QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

class UiFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(root.isValid());
        serverRoot = root.filePath(QStringLiteral("server"));
        publishSampleServer(serverRoot, 3000);
        host = std::make_unique<UiTestHost>(root.path());
        // Installed: configuration Standard 3.3.8 in use, with an older charts
        // and quotes module and news at the offered version.
        // Runs end in installation; without an updater it says "Update failed",
        // which the answerer dismisses. Installation tests name a real one.
        qputenv("VELMORA_UPDATER", QFile::encodeName(root.filePath("no-updater")));
        answerer = std::make_unique<ModalAnswerer>();
        host->products.addConfiguration("Standard", 3, 3, 8, true, 7,
                                        {installedModule("charts.so", 1, 4, 0),
                                         installedModule("news.so", 1, 0, 0),
                                         installedModule("quotes.so", 2, 0, 0)});
    }

    void TearDown() override
    {
        if (CDownloadModule* module = GetModule<CDownloadModule>())
            module->deleteDialog();
        answerer.reset();
        host.reset();
        qunsetenv("VELMORA_UPDATER");
    }

    void startNginx()
    {
        nginx = std::make_unique<NginxServer>(serverRoot);
        ASSERT_TRUE(nginx->started()) << nginx->log().toStdString();
        writeSettings("[Address]\r\nPath=" + nginx->baseUrl().toLatin1() + "\r\n");
    }

    void writeSettings(const QByteArray& text)
    {
        writeText(host->configDir + QStringLiteral("/download.cfg"), text);
    }

    void put(const QString& relative, const QByteArray& bytes)
    {
        putServerFile(serverRoot, relative, bytes);
    }

    CDownloadWidget* openDialog()
    {
        host->deliver(HostMsg::OpenDialog);
        return GetModule<CDownloadModule>()->widget();
    }

    // Opens the window from the host's menu and waits until the lists are shown.
    bool openWindowAndWaitForLists(CDownloadWidget* widget)
    {
        return waitForLists(widget, [this] {
            mm_menu_item item{};
            item.id = UiTestHost::kMenuId;
            host->deliver(HostMsg::MenuCommand, reinterpret_cast<intptr_t>(&item));
        }) && widget->dialogWindow();
    }

    // Does what starts a list search and waits until its lists are shown.
    template <class Start>
    bool waitForLists(CDownloadWidget* widget, Start start)
    {
        bool shown = false;
        const QMetaObject::Connection connection = QObject::connect(
            widget, &CDownloadWidget::SignalListsShown, widget, [&shown] { shown = true; });
        start();
        const bool done = waitFor([&shown] { return shown; });
        QObject::disconnect(connection);
        return done;
    }

    QStringList topLevelRows(CDownloadWidget* widget) const
    {
        QStringList rows;
        for (int i = 0; i < widget->tree()->topLevelItemCount(); ++i) {
            QTreeWidgetItem* row = widget->tree()->topLevelItem(i);
            QString text = row->text(0) + '|' + row->text(4);
            for (int c = 0; c < row->childCount(); ++c)
                text += " <" + row->child(c)->text(0) + '|' + row->child(c)->text(4) + '>';
            rows << text;
        }
        return rows;
    }

    void tick(CDownloadWidget* widget, const QString& name)
    {
        for (int i = 0; i < widget->tree()->topLevelItemCount(); ++i)
            if (widget->tree()->topLevelItem(i)->text(0) == name)
                widget->tree()->topLevelItem(i)->setCheckState(0, Qt::Checked);
    }

    // Requests nginx answered, as "path|status|range", without the list chain.
    QStringList fileRequests() const
    {
        QStringList result;
        for (const QString& line : nginx->accessLog()) {
            const QStringList parts = line.split('|');
            // The client asks for the absolute URI, as it would of a proxy.
            const QString path = QUrl(parts.value(0).section(' ', 1, 1)).path();
            if (path.startsWith(QLatin1String("/files/")))
                result << path + '|' + parts.value(1) + '|' + parts.value(2);
        }
        return result;
    }

    QString downloaded(const QString& name) const { return host->downloadDir + '/' + name; }

    QTemporaryDir root;
    QString serverRoot;
    std::unique_ptr<UiTestHost> host;
    std::unique_ptr<NginxServer> nginx;
    std::unique_ptr<ModalAnswerer> answerer;  // every box the dialog opens, in order
};
