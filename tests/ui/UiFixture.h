#pragma once
// The dialog's tests: the workflow's setting (an update server tree served
// by nginx, a host with an installed configuration) with the dialog opened
// the way a host opens it, and the boxes it shows answered.
#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>

#include "module/DownloadModule.h"
#include "protocol/HostMessages.h"
#include "ui/DownloadMessInfo.h"
#include "ui/DownloadWidget.h"
#include "update/WorkflowFixture.h"

class UiFixture : public WorkflowFixture {
protected:
    void SetUp() override
    {
        WorkflowFixture::SetUp();
        // Every message box or question box the dialog opens is answered
        // with its first button (OK / Yes), its "title | text" kept.
        QObject::connect(&answerer, &QTimer::timeout, [this] {
            for (QWidget* window : QApplication::topLevelWidgets()) {
                auto* box = qobject_cast<QMessageBox*>(window);
                auto* question = dynamic_cast<CDownloadMessInfo*>(window);
                if (!window->isVisible() || (!box && !question))
                    continue;
                boxes << window->windowTitle() + " | " + (box ? box->text() : question->textLabel()->text());
                (box ? box->buttons().first() : question->okButton())->click();
                return;
            }
        });
        answerer.start(20);
    }

    void TearDown() override
    {
        if (CDownloadModule* module = GetModule<CDownloadModule>())
            module->deleteDialog();
        answerer.stop();
        WorkflowFixture::TearDown();
    }

    void writeSettings(const QByteArray& text) { writeText(host->configDir + QStringLiteral("/download.cfg"), text); }

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

    // "name|version" of each top-level row, its children's in "<...>".
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
        for (QTreeWidgetItem* row : widget->tree()->findItems(name, Qt::MatchExactly))
            row->setCheckState(0, Qt::Checked);
    }

    QTimer answerer;
    QStringList boxes;  // every box the dialog opened, in order
};
