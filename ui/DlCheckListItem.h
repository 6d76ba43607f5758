#pragma once
// A row of the dialog's tree of offered files: a module or a configuration,
// with a check box when it can be chosen. It carries the record it was made
// from, so that a ticked row becomes a download without reading its columns
// back.
#include <QString>
#include <QTreeWidgetItem>

#include "update/DlModule.h"

class CDownloadWidget;

class CDlCheckListItem : public QTreeWidgetItem {
public:
    enum Type { Plain = 0, CheckBox = 1 };

    CDlCheckListItem(CDownloadWidget* owner, QTreeWidget* tree, const QString& text, Type kind);

    // Re-evaluates the dialog's buttons; the argument is not used.
    void stateChange(bool on);

    int checkKind() const { return checkKind_; }

    // Description texts found for the row; "File not found" until then.
    // Slot 1 is the local description file shown when the row is selected.
    QString textSlot1;
    QString textSlot2 = QStringLiteral("File not found");
    QString textSlot3 = QStringLiteral("File not found");

    // Set on a row that groups others (a configuration with its modules).
    bool childMarker = false;
    dlModule module = emptyDlModule();

private:
    CDownloadWidget* owner_;
    int checkKind_ = 1;
};
