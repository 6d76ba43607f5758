#include "host/app/DialogDriver.h"

#include <algorithm>

#include <QApplication>
#include <QDialog>
#include <QDir>
#include <QFileInfo>
#include <QLabel>
#include <QTextEdit>
#include <QMessageBox>
#include <QPixmap>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QStatusBar>
#include <QTreeWidget>

namespace {

QString checkMark(const QTreeWidgetItem* item)
{
    if (!(item->flags() & Qt::ItemIsUserCheckable))
        return QStringLiteral("   ");
    switch (item->checkState(0)) {
    case Qt::Checked:
        return QStringLiteral("[x]");
    case Qt::PartiallyChecked:
        return QStringLiteral("[-]");
    default:
        return QStringLiteral("[ ]");
    }
}

void appendRow(const QTreeWidgetItem* item, int depth, QStringList& lines)
{
    QStringList columns;
    for (int column = 0; column < item->columnCount(); ++column)
        columns << DialogDriver::oneLine(item->text(column));
    lines << QString(depth * 4, QLatin1Char(' ')) + checkMark(item) + QLatin1Char(' ')
                 + columns.join(QStringLiteral(" | "));
    for (int i = 0; i < item->childCount(); ++i)
        appendRow(item->child(i), depth + 1, lines);
}

// Buttons in reading order: top to bottom, then left to right, as laid out
// on the screen.
QList<QAbstractButton*> buttonsInOrder(QDialog* box)
{
    QList<QAbstractButton*> buttons;
    for (QAbstractButton* button : box->findChildren<QAbstractButton*>()) {
        if (button->isVisible())
            buttons << button;
    }
    std::stable_sort(buttons.begin(), buttons.end(), [box](QAbstractButton* a, QAbstractButton* b) {
        const QPoint pa = a->mapTo(box, QPoint(0, 0));
        const QPoint pb = b->mapTo(box, QPoint(0, 0));
        return pa.y() != pb.y() ? pa.y() < pb.y() : pa.x() < pb.x();
    });
    return buttons;
}

}  // namespace

DialogDriver::DialogDriver(TextLookup text)
    : text_(std::move(text))
{
}

QString DialogDriver::text(const char* key) const
{
    const QString translated = text_ ? text_(key) : QString();
    return translated.isNull() ? QString::fromLatin1(key) : translated;
}

bool DialogDriver::isUpdatesWindow(QDialog* dialog)
{
    const auto trees = dialog->findChildren<QTreeWidget*>();
    return trees.size() == 1 && trees.first()->columnCount() == 5
        && dialog->findChild<QStatusBar*>() && dialog->findChild<QProgressBar*>();
}

QDialog* DialogDriver::window() const
{
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        auto* dialog = qobject_cast<QDialog*>(widget);
        if (dialog && dialog->isVisible() && isUpdatesWindow(dialog))
            return dialog;
    }
    return nullptr;
}

QTreeWidget* DialogDriver::tree() const
{
    QDialog* dialog = window();
    return dialog ? dialog->findChild<QTreeWidget*>() : nullptr;
}

QStatusBar* DialogDriver::statusBar() const
{
    QDialog* dialog = window();
    return dialog ? dialog->findChild<QStatusBar*>() : nullptr;
}

// The label that shares the list's page.
QLabel* DialogDriver::infoLabel() const
{
    QTreeWidget* list = tree();
    if (!list || !list->parentWidget())
        return nullptr;
    return list->parentWidget()->findChild<QLabel*>(QString(), Qt::FindDirectChildrenOnly);
}

QPushButton* DialogDriver::button(Button which) const
{
    QDialog* dialog = window();
    if (!dialog)
        return nullptr;
    QStringList texts;
    switch (which) {
    case Button::Start:
        // The same button reads "Pause" while a run is going.
        texts << text("MD0011") << text("C0082");
        break;
    case Button::Stop:
        texts << text("C0007Cancel");
        break;
    case Button::Refresh:
        texts << text("C0083");
        break;
    case Button::Close:
        texts << text("C0050Close");
        break;
    }
    for (QPushButton* candidate : dialog->findChildren<QPushButton*>()) {
        if (texts.contains(candidate->text()))
            return candidate;
    }
    return nullptr;
}

bool DialogDriver::parseButton(const QString& name, Button& which)
{
    if (name == QLatin1String("start"))
        which = Button::Start;
    else if (name == QLatin1String("stop"))
        which = Button::Stop;
    else if (name == QLatin1String("refresh"))
        which = Button::Refresh;
    else if (name == QLatin1String("close"))
        which = Button::Close;
    else
        return false;
    return true;
}

bool DialogDriver::listsShown() const
{
    QPushButton* refresh = button(Button::Refresh);
    QPushButton* start = button(Button::Start);
    if (!refresh || !start)
        return false;
    return (refresh->isEnabled() || start->isEnabled())
        && statusText() != text("MD0038Message");
}

QTreeWidgetItem* DialogDriver::topLevelRow(const QString& name) const
{
    QTreeWidget* list = tree();
    if (!list)
        return nullptr;
    for (int i = 0; i < list->topLevelItemCount(); ++i) {
        if (list->topLevelItem(i)->text(0) == name)
            return list->topLevelItem(i);
    }
    return nullptr;
}

bool DialogDriver::setTicked(const QString& name, bool ticked, QString& error) const
{
    if (!window()) {
        error = QStringLiteral("the Updates window is not open");
        return false;
    }
    QTreeWidgetItem* row = topLevelRow(name);
    if (!row) {
        error = QStringLiteral("no row named \"%1\"").arg(name);
        return false;
    }
    if (!(row->flags() & Qt::ItemIsUserCheckable)) {
        error = QStringLiteral("row \"%1\" has no check box").arg(name);
        return false;
    }
    row->setCheckState(0, ticked ? Qt::Checked : Qt::Unchecked);
    return true;
}

QStringList DialogDriver::treeLines() const
{
    QStringList lines;
    QTreeWidget* list = tree();
    if (!list)
        return lines;
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        appendRow(list->topLevelItem(i), 0, lines);
    return lines;
}

QString DialogDriver::statusText() const
{
    QStatusBar* bar = statusBar();
    return bar ? bar->currentMessage() : QString();
}

QString DialogDriver::infoText() const
{
    QLabel* label = infoLabel();
    return label ? label->text() : QString();
}

QDialog* DialogDriver::openBox() const
{
    QDialog* updates = window();
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        auto* dialog = qobject_cast<QDialog*>(widget);
        // A progress window asks nothing: its one button cancels the work.
        if (!dialog || dialog == updates || qobject_cast<QProgressDialog*>(dialog))
            continue;
        if (dialog->isVisible() && (dialog->isModal() || dialog->windowModality() != Qt::NonModal))
            return dialog;
    }
    return nullptr;
}

QWidget* DialogDriver::windowAbove() const
{
    QWidget* modal = QApplication::activeModalWidget();
    return modal && modal != window() && modal->isVisible() ? modal : nullptr;
}

QString DialogDriver::boxTitle(QDialog* box)
{
    return box->windowTitle();
}

// A message box says what it says in its text; a box of our own in the
// labels that carry text rather than an icon.
QString DialogDriver::boxText(QDialog* box)
{
    if (auto* message = qobject_cast<QMessageBox*>(box))
        return message->text();
    QStringList texts;
    for (QLabel* label : box->findChildren<QLabel*>()) {
        if (!label->text().isEmpty())
            texts << label->text();
    }
    // A report shows its text in a text view.
    for (QTextEdit* view : box->findChildren<QTextEdit*>())
        texts << view->toPlainText();
    return texts.join(QLatin1Char(' '));
}

bool DialogDriver::answerBox(QDialog* box, bool yes)
{
    const QList<QAbstractButton*> buttons = buttonsInOrder(box);
    if (buttons.isEmpty())
        return false;
    (yes ? buttons.first() : buttons.last())->click();
    return true;
}

bool DialogDriver::screenshot(const QString& path, QString& error) const
{
    QDialog* dialog = window();
    if (!dialog) {
        error = QStringLiteral("the Updates window is not open");
        return false;
    }
    const QFileInfo info(path);
    if (!QDir().mkpath(info.absolutePath()) || !dialog->grab().save(path, "PNG")) {
        error = QStringLiteral("cannot write %1").arg(path);
        return false;
    }
    return true;
}

QString DialogDriver::oneLine(QString text)
{
    text.replace(QLatin1Char('\r'), QLatin1String("\\r"));
    text.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return text;
}
