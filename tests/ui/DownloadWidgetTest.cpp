// The dialog object and its window: what it asks the host, where it finds
// the server, how the list chain fills the tree, and the window's controls.
#include <QCheckBox>
#include <QPushButton>

#include "ui/TextEdit.h"
#include "ui/UiFixture.h"
#include "update/SaveParamDownload.h"

namespace {
class Construction : public UiFixture {};
class Window : public UiFixture {};
}  // namespace

// The window then opens only for the dialog's own menu entry, and only on-line.
TEST_F(Construction, AsksTheHostInOrderKeepsOnlyUnfinishedDownloadsAndOpensFromItsOwnEntry)
{
    QDir().mkpath(host->downloadDir);
    for (const char* name : {"configDesc.txt", "notes.TXT", "charts.so.gz"})
        writeText(downloaded(name), "left from before");
    useServer("http://127.0.0.1:1/base");

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
    EXPECT_EQ(300, widget->autoDelaySeconds());  // that the timer runs is the automatic runs' business

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

// Without settings the download folder is made and the settings are not.
TEST_F(Construction, ServerAddressIsNormalisedAndCut)
{
    const QString fallback = QStringLiteral("http://update.velmora.org/Win32_3.3.8");
    const QString settingsFile = host->configDir + QStringLiteral("/download.cfg");
    EXPECT_EQ(fallback, openDialog()->serverBaseUrl());
    EXPECT_TRUE(QDir(host->downloadDir).exists());
    EXPECT_FALSE(QFile::exists(settingsFile));
    const std::pair<QByteArray, QString> cases[] = {
        {"[address]\nPath=http://other\n", fallback},  // section names are case-sensitive
        // With its scheme, the address is cut to the 1023 bytes of the buffer.
        {"[Address]\nPath=" + QByteArray(2000, 'h') + "\n", "http://" + QString(1023 - 7, 'h')},
    };
    for (const auto& [settings, expected] : cases) {
        writeText(settingsFile, settings);
        EXPECT_EQ(expected, openDialog()->serverBaseUrl()) << settings.left(40).constData();
    }
}

// Which rows the list chain offers, and their columns, HostScriptTest reads
// from this window in module-host: the configuration with its module under
// it, charts.so and orders.so.
TEST_F(Window, SelectingARowShowsItsDescriptionAndRefreshShowsTheRowsOnce)
{
    QFile::remove(serverRoot + "/desc/orders.txt");
    CDownloadWidget* widget = openWindow();
    ASSERT_NE(nullptr, widget);
    ASSERT_EQ(3, widget->tree()->topLevelItemCount());
    QTreeWidgetItem* orders = widget->tree()->topLevelItem(2);

    // Selecting a module shows its description, a module row of a
    // configuration the configuration's; a missing one reads as such.
    const std::pair<QTreeWidgetItem*, QString> descriptions[] = {
        {widget->tree()->topLevelItem(1), QString::fromLocal8Bit("Charts with \xe9l\xe9gance.")},
        {widget->tree()->topLevelItem(0)->child(0), QStringLiteral("The standard set of modules.")},
        {orders, QStringLiteral("MD0042")}};
    for (const auto& [row, description] : descriptions) {
        widget->tree()->setCurrentItem(row);
        EXPECT_EQ(description, widget->descriptionView()->toPlainText());
    }

    // Refresh searches again and shows its rows once, not after the old.
    ASSERT_TRUE(waitForLists(widget, [widget] { widget->refreshControl()->click(); }));
    EXPECT_EQ(3, widget->tree()->topLevelItemCount());
}

// Start is enabled while a row is ticked, Refresh while none is; two ticks
// decide as one. The automatic box guards its partner, and Close stores both.
TEST_F(Window, TicksDriveStartAndRefreshAndCloseStoresTheStartOptions)
{
    CDownloadWidget* widget = openWindow();
    ASSERT_NE(nullptr, widget);
    const auto startEnabled = [widget] {
        EXPECT_NE(widget->startControl()->isEnabled(), widget->refreshControl()->isEnabled());
        return widget->startControl()->isEnabled();
    };
    EXPECT_FALSE(startEnabled());
    tick(widget, {"charts.so"});
    EXPECT_TRUE(startEnabled());
    tick(widget, {"orders.so"});
    EXPECT_TRUE(startEnabled());
    tick(widget, {"charts.so", "orders.so"}, Qt::Unchecked);
    EXPECT_FALSE(startEnabled());

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
