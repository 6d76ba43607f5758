#pragma once
// Finds the module's "Updates" window and its controls among the process's
// widgets, and works them as a user would. The host loads the module with
// dlopen and shares its Qt, so the window is one of the application's
// top-level widgets; it is recognised by its make-up (a dialog with a list of
// five columns, a status bar and a progress bar) and its buttons by their
// texts, looked up through the host's translator under the module's context.
// Nothing here knows the module's classes.
#include <functional>

#include <QString>
#include <QStringList>

class QDialog;
class QLabel;
class QPushButton;
class QStatusBar;
class QTreeWidget;
class QTreeWidgetItem;
class QWidget;

class DialogDriver {
public:
    enum class Button { Start, Stop, Refresh, Close };
    // Answers a text key of the module with the text the user sees.
    using TextLookup = std::function<QString(const char* key)>;

    explicit DialogDriver(TextLookup text);

    // The visible "Updates" window, or null.
    QDialog* window() const;
    QTreeWidget* tree() const;
    QStatusBar* statusBar() const;
    // The information text above the list.
    QLabel* infoLabel() const;
    QPushButton* button(Button which) const;
    static bool parseButton(const QString& name, Button& which);

    // The list search is over: the window shows its controls again (Refresh
    // or Start can be pressed) and no longer says it is searching.
    bool listsShown() const;
    // Sets the check box of the top-level row whose first column is name;
    // false with error when there is no window or no such row.
    bool setTicked(const QString& name, bool ticked, QString& error) const;

    // One line per row: check box, then the five columns separated by " | ";
    // children indented by four spaces per level.
    QStringList treeLines() const;
    QString statusText() const;
    QString infoText() const;

    // A visible modal window other than the "Updates" window: a message box,
    // the module's own question box or a report. Never a progress window.
    // Null when there is none.
    QDialog* openBox() const;
    // The modal window over the "Updates" window (a box, a progress window),
    // or null. While there is one a user cannot reach the window's controls.
    QWidget* windowAbove() const;
    static QString boxTitle(QDialog* box);
    static QString boxText(QDialog* box);
    // Presses the box's first button (yes) or its last (no), in the order
    // they are laid out; false when the box has no button.
    static bool answerBox(QDialog* box, bool yes);

    bool screenshot(const QString& path, QString& error) const;

    // Line breaks as \r and \n, so that one text stays on one printed line.
    static QString oneLine(QString text);

private:
    static bool isUpdatesWindow(QDialog* dialog);
    QString text(const char* key) const;
    QTreeWidgetItem* topLevelRow(const QString& name) const;

    TextLookup text_;
};
