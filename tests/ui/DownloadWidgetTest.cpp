// The dialog object and its window: what it asks the host, where it finds
// the server, how the list chain fills the tree, and the window's controls.
#include <QCheckBox>
#include <QPointer>
#include <QPushButton>
#include <QStatusBar>

#include "ui/TextEdit.h"
#include "ui/UiFixture.h"
#include "update/SaveParamDownload.h"

namespace {

class Construction : public UiFixture {};
class Window : public UiFixture {};

}  // namespace

TEST_F(Construction, AsksTheHostInOrderAndKeepsOnlyUnfinishedDownloads)
{
    QDir().mkpath(host->downloadDir);
    writeText(downloaded("configDesc.txt"), "old list");
    writeText(downloaded("notes.TXT"), "not a list");
    writeText(downloaded("charts.so.gz"), "partial download");
    writeSettings("[Address]\r\nPath=http://127.0.0.1:1/base\r\n");

    CDownloadWidget* widget = openDialog();
    ASSERT_NE(nullptr, widget);

    std::vector<unsigned int> asked;
    for (unsigned int code : host->codes())
        if (code != HostMsg::FolderByType && !ParameterStore::handles(code))
            asked.push_back(code);
    // The first look-up is the module's own, of the main window for 3066.
    EXPECT_EQ(asked, (std::vector<unsigned int>{HostMsg::FindInterface, HostMsg::QueryConnectState,
                                                HostMsg::FindInterface, HostMsg::AddMenuItem, HostMsg::UpdateMenu,
                                                HostMsg::ConfigurationCount, HostMsg::ConfigurationList,
                                                HostMsg::ReleaseInterface}));
    EXPECT_EQ(QStringLiteral("MD0003"), host->menuText);  // no translator: the key
    EXPECT_EQ(UiTestHost::kMenuId, widget->menuIdentifier());

    // Old lists go ("*.txt" only, as a shell would match), unfinished downloads stay.
    EXPECT_EQ(QStringList({"charts.so.gz", "notes.TXT"}),
              QDir(host->downloadDir).entryList({"*.txt", "*.gz"}, QDir::Files, QDir::Name));
    EXPECT_EQ(QStringLiteral("http://127.0.0.1:1/base"), widget->serverBaseUrl());
    EXPECT_EQ(nullptr, widget->dialogWindow());  // the window waits for the menu
    EXPECT_EQ(300, widget->autoDelaySeconds());
    EXPECT_TRUE(widget->autoStartTimer()->isActive());
}

// Without settings the download folder is made and the settings are not.
TEST_F(Construction, ServerAddressIsNormalisedAndCut)
{
    const QString fallback = QStringLiteral("http://update.velmora.org/Win32_3.3.8");
    EXPECT_EQ(fallback, openDialog()->serverBaseUrl());
    EXPECT_TRUE(QDir(host->downloadDir).exists());
    EXPECT_FALSE(QFile::exists(host->configDir + QStringLiteral("/download.cfg")));
    const std::pair<QByteArray, QString> cases[] = {
        {"[Address]\r\nPath=ftp://h/p\r\n", "http://ftp://h/p"},  // the settings' own scheme rule
        {"[address]\nPath=http://other\n", fallback},  // section names are case-sensitive
        // The settings file is read in lines of at most 1024 bytes, "Path=" included.
        {"[Address]\nPath=http://" + QByteArray(2000, 'a') + "\n", "http://" + QString(1024 - 5 - 7, 'a')},
        // Then, with its scheme, to the 1023 bytes of the buffer.
        {"[Address]\nPath=" + QByteArray(2000, 'h') + "\n", "http://" + QString(1023 - 7, 'h')},
        {QByteArray("\x01\x02[\xff\xfe=\n\0\0junk", 14), fallback},
    };
    for (const auto& [settings, expected] : cases) {
        writeSettings(settings);
        EXPECT_EQ(expected, openDialog()->serverBaseUrl()) << settings.left(40).constData();
    }
}

TEST_F(Window, ListChainShowsExactlyTheOfferedRows)
{
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));

    // The configuration's own module goes under its row.
    const QStringList rows{"Standard|3.4.0 <quotes.so|2.1.0>", "charts.so|1.5.0", "orders.so|4.0.0"};
    EXPECT_EQ(rows, topLevelRows(widget));
    QTreeWidgetItem* orders = widget->tree()->topLevelItem(2);  // 3000 kB >> 10 = 2 Mb
    EXPECT_EQ(QStringList({"2.0 Mb", "2026-11-10", "3.3.8"}),
              QStringList({orders->text(1), orders->text(2), orders->text(3)}));

    // Selecting a module shows its description; a module row of a
    // configuration shows the configuration's.
    widget->tree()->setCurrentItem(widget->tree()->topLevelItem(1));
    EXPECT_EQ(QString::fromLocal8Bit("Charts with \xe9l\xe9gance."),
              widget->descriptionView()->toPlainText());
    widget->tree()->setCurrentItem(widget->tree()->topLevelItem(0)->child(0));
    EXPECT_EQ(QStringLiteral("The standard set of modules."),
              widget->descriptionView()->toPlainText());

    // A second search (the automatic start's timer with nothing stored)
    // shows its rows once, not after the old.
    ASSERT_TRUE(waitForLists(widget, [widget] { widget->startTimerIsOutTime(); }));
    EXPECT_EQ(rows, topLevelRows(widget));
}

TEST_F(Window, MissingListsAndDescriptionsLeaveAUsableWindow)
{
    QFile::remove(serverRoot + "/configDesc.txt");
    QFile::remove(serverRoot + "/desc/charts.txt");
    writeText(serverRoot + "/moduleDesc.txt", "<html><body>Not a list</body></html>\n");
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    EXPECT_TRUE(topLevelRows(widget).isEmpty());
    EXPECT_EQ(QStringLiteral("MD0041Message"), widget->statusLine()->currentMessage());
    EXPECT_TRUE(widget->refreshControl()->isEnabled());

    // The module list comes back; its missing description reads as such.
    putServerFile(serverRoot, "/moduleDesc.txt",
        "charts.so,1.5.0,3.3.8,1,/desc/charts.txt,/files/charts.so.gz,2026-10-01,20\n");
    ASSERT_TRUE(waitForLists(widget, [widget] { widget->refreshControl()->click(); }));
    ASSERT_EQ((QStringList{"charts.so|1.5.0"}), topLevelRows(widget));
    widget->tree()->setCurrentItem(widget->tree()->topLevelItem(0));
    EXPECT_EQ(QStringLiteral("MD0042"), widget->descriptionView()->toPlainText());
}

// Start is enabled while a row is ticked, Refresh while none is.
TEST_F(Window, TickingDrivesStartAndRefresh)
{
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    const auto expectStart = [widget](bool on) {
        EXPECT_EQ(on, widget->startControl()->isEnabled());
        EXPECT_EQ(!on, widget->refreshControl()->isEnabled());
    };
    expectStart(false);
    tick(widget, "charts.so");
    expectStart(true);
    tick(widget, "orders.so");  // two ticks decide as one
    expectStart(true);
    for (int i = 0; i < widget->tree()->topLevelItemCount(); ++i)
        widget->tree()->topLevelItem(i)->setCheckState(0, Qt::Unchecked);
    expectStart(false);
}

TEST_F(Window, MenuCommandsOfOthersOrOffLineAreIgnored)
{
    startNginx();
    CDownloadWidget* widget = openDialog();
    mm_menu_item other{}, ours{};
    other.id = UiTestHost::kMenuId + 1;
    ours.id = UiTestHost::kMenuId;
    host->deliver(HostMsg::MenuCommand, reinterpret_cast<intptr_t>(&other));
    host->deliver(HostMsg::MenuCommand, 0);
    EXPECT_EQ(nullptr, widget->dialogWindow());
    mwiSetStateConnect offLine{0};
    host->deliver(HostMsg::SetConnectState, reinterpret_cast<intptr_t>(&offLine));
    host->deliver(HostMsg::MenuCommand, reinterpret_cast<intptr_t>(&ours));
    EXPECT_EQ(nullptr, widget->dialogWindow());
}

TEST_F(Window, CloseStoresTheStartOptionsAndTheAutoBoxGuardsItsPartner)
{
    startNginx();
    CDownloadWidget* widget = openDialog();
    ASSERT_TRUE(openWindowAndWaitForLists(widget));
    EXPECT_FALSE(widget->showWindowControl()->isEnabled());
    widget->autoControl()->setChecked(true);
    EXPECT_TRUE(widget->showWindowControl()->isEnabled());
    widget->showWindowControl()->setChecked(true);
    widget->autoControl()->setChecked(false);
    EXPECT_FALSE(widget->showWindowControl()->isChecked());
    widget->autoControl()->setChecked(true);

    widget->closeControl()->click();
    EXPECT_TRUE(waitFor([widget] { return widget->dialogWindow() == nullptr; }));
    bool autoDownload = false, showWindow = true;
    CSaveParamDownload(host->downloadDir).getStartParam(autoDownload, showWindow);
    EXPECT_EQ(std::make_pair(true, false), std::make_pair(autoDownload, showWindow));
}

TEST_F(Window, OpeningTwiceKeepsOneDialogObject)
{
    CDownloadWidget* first = openDialog();
    QPointer<CDownloadWidget> watch(first);
    CDownloadWidget* second = openDialog();
    EXPECT_NE(first, second);
    EXPECT_TRUE(watch.isNull());
    EXPECT_EQ(second, GetModule<CDownloadModule>()->widget());
    host->deliver(HostMsg::CloseDialog);
    EXPECT_EQ(second, GetModule<CDownloadModule>()->widget());
}
