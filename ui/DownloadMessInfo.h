#pragma once
// A small question box with an information icon and Yes/No buttons; start()
// runs it modally and tells which button was pressed.
#include <QDialog>
#include <QString>

class CDownloadWidget;
class QLabel;
class QPushButton;

class CDownloadMessInfo : public QDialog {
    Q_OBJECT
public:
    // The widget is not used as a parent: the box is a window of its own.
    CDownloadMessInfo(CDownloadWidget* widget, QString title, QString text);

    // 0 when OK was pressed, 1 for Cancel or any other way of closing.
    int start();

    QPushButton* okButton() const { return okButton_; }
    QPushButton* cancelButton() const { return cancelButton_; }
    QLabel* textLabel() const { return textLabel_; }

public slots:
    void pressedButtonOk();
    void pressedButtonCancel();

private:
    QLabel* textLabel_;
    QLabel* iconLabel_;
    QPushButton* okButton_;
    QPushButton* cancelButton_;
    int result_ = 1;
};
