#pragma once
// The host's main window. Its address is the "MAINWINDOW" object the module
// finds with code 3001 and then addresses with the main-window codes; its
// native id answers 3502, so the module can parent its dialogs to it.
//
// The window holds what a user of the terminal reaches the module with: the
// "Updates" menu with the module's entry (3075, picked: 5511) and the
// "On-line" switch (3529). What picking and switching do is the owner's:
// the window only reports them.
#include <functional>

#include <QMainWindow>

class QAction;
class QMenu;

class HostWindow : public QMainWindow {
public:
    HostWindow();

    // The menu under which modules' entries appear.
    QMenu* updatesMenu() const { return updatesMenu_; }
    QAction* onlineAction() const { return onlineAction_; }
    // The module's entry; null before the module asked for one.
    QAction* moduleEntry() const { return moduleEntry_; }

    // Puts the module's entry into the "Updates" menu, replacing an earlier
    // one: a module asks again each time it builds its dialog object.
    void setModuleEntry(const QString& text, int id);
    void setOnline(bool online);

    std::function<void(int id)> entryPicked;
    std::function<void(bool online)> onlineToggled;
    // Called once when the user closes the window, before it goes.
    std::function<void()> closing;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QMenu* updatesMenu_ = nullptr;
    QAction* onlineAction_ = nullptr;
    QAction* moduleEntry_ = nullptr;
    bool closed_ = false;
};
