#pragma once
// The dialog's tests: the workflow's setting with the dialog opened the way a
// host opens it, and the boxes it shows answered.
#include <QApplication>
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
        // with its first button (OK / Yes); which boxes the workflow shows is
        // the workflow tests' business.
        QObject::connect(&answerer, &QTimer::timeout, [] {
            for (QWidget* window : QApplication::topLevelWidgets()) {
                auto* box = qobject_cast<QMessageBox*>(window);
                auto* question = dynamic_cast<CDownloadMessInfo*>(window);
                if (window->isVisible() && (box || question))
                    return (box ? box->buttons().first() : question->okButton())->click();
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

    CDownloadWidget* openDialog()
    {
        host->deliver(HostMsg::OpenDialog);
        return GetModule<CDownloadModule>()->widget();
    }

    // Serves the server tree, opens the dialog object and its window from the
    // host's menu and waits until the lists are shown; null if any step failed.
    CDownloadWidget* openWindow()
    {
        startNginx();
        CDownloadWidget* widget = HasFatalFailure() ? nullptr : openDialog();
        mm_menu_item item{};
        item.id = UiTestHost::kMenuId;
        return widget && waitForLists(widget, [&] { host->deliver(HostMsg::MenuCommand, intptr_t(&item)); })
                       && widget->dialogWindow() ? widget : nullptr;
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

    void tick(CDownloadWidget* widget, std::initializer_list<const char*> names, Qt::CheckState state = Qt::Checked)
    {
        for (const char* name : names)
            for (QTreeWidgetItem* row : widget->tree()->findItems(name, Qt::MatchExactly))
                row->setCheckState(0, state);
    }

    QTimer answerer;
};
