#include "host/app/HostWindow.h"

#include <QAction>
#include <QCloseEvent>
#include <QMenu>
#include <QMenuBar>
#include <QSignalBlocker>
#include <QToolBar>

HostWindow::HostWindow()
{
    setWindowTitle(QStringLiteral("module-host"));
    resize(480, 240);
    updatesMenu_ = menuBar()->addMenu(QStringLiteral("Updates"));

    // A checkable action in both the menu bar and a tool bar, so the state is
    // visible at a glance; checked means on-line.
    QMenu* connection = menuBar()->addMenu(QStringLiteral("Connection"));
    onlineAction_ = connection->addAction(QStringLiteral("On-line"));
    onlineAction_->setCheckable(true);
    onlineAction_->setChecked(true);
    addToolBar(QStringLiteral("Connection"))->addAction(onlineAction_);
    connect(onlineAction_, &QAction::toggled, this, [this](bool checked) {
        if (onlineToggled)
            onlineToggled(checked);
    });
}

void HostWindow::setModuleEntry(const QString& text, int id)
{
    delete moduleEntry_;
    moduleEntry_ = updatesMenu_->addAction(text);
    connect(moduleEntry_, &QAction::triggered, this, [this, id] {
        if (entryPicked)
            entryPicked(id);
    });
}

// Shows the state without reporting it back: the owner already knows it.
void HostWindow::setOnline(bool online)
{
    const QSignalBlocker blocker(onlineAction_);
    onlineAction_->setChecked(online);
}

void HostWindow::closeEvent(QCloseEvent* event)
{
    if (!closed_) {
        closed_ = true;
        if (closing)
            closing();
    }
    QMainWindow::closeEvent(event);
}
