#pragma once
// The read-only text view of the dialog (descriptions, the update report):
// plain or rich text, with a context menu that offers copying and selecting.
#include <QTextEdit>

class CTextEdit : public QTextEdit {
    Q_OBJECT
public:
    explicit CTextEdit(QWidget* parent = nullptr);
};
