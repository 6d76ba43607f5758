#include "host/app/HostWindow.h"

#include <QMenuBar>

HostWindow::HostWindow()
{
    setWindowTitle(QStringLiteral("module-host"));
    resize(480, 240);
    updatesMenu_ = menuBar()->addMenu(QStringLiteral("Updates"));
}
