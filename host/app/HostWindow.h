#pragma once
// The host's main window. Its address is the "MAINWINDOW" object the module
// finds with code 3001 and then addresses with the main-window codes; its
// native id answers 3502, so the module can parent its dialogs to it.
#include <QMainWindow>

class QMenu;

class HostWindow : public QMainWindow {
public:
    HostWindow();

    // The menu under which modules' entries appear.
    QMenu* updatesMenu() const { return updatesMenu_; }

private:
    QMenu* updatesMenu_ = nullptr;
};
