// CDownloadWidget as the workflow's view: the status line, progress bar,
// information text, buttons and the tree of offered rows, and the tree's
// own slots (selection, descriptions, double clicks).
#include <QDialog>
#include <QFile>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>
#include <QTreeWidget>

#include "ui/DlCheckListItem.h"
#include "ui/DlListViewItem.h"
#include "ui/DownloadWidget.h"
#include "ui/TextEdit.h"

namespace {

// Columns: Name, Size, Date, Core, Version. The list's display text is the
// file's date as the server publishes it, and versionExtra is the core
// version it was built for.
void fillColumns(QTreeWidgetItem* item, const dlModule& record)
{
    item->setText(0, dlLocalText(record.name));
    item->setText(1, dlLocalText(record.sizeText));
    item->setText(2, dlLocalText(record.title));
    item->setText(3, dlLocalText(record.versionExtra));
    item->setText(4, dlLocalText(record.version));
}

bool isTicked(const QTreeWidgetItem* row)
{
    return row && (row->flags() & Qt::ItemIsUserCheckable) && row->checkState(0) == Qt::Checked;
}

}  // namespace

// ---------------------------------------------------------------------------
// The view

void CDownloadWidget::setStatus(const QString& message, int timeoutMs)
{
    if (!statusBar)
        return;
    if (message.isEmpty())
        statusBar->clearMessage();
    else
        statusBar->showMessage(message, timeoutMs);
}

void CDownloadWidget::setInfo(const QString& message)
{
    if (infoLabel) {
        infoLabel->setText(message);
        infoLabel->repaint();
    }
}

void CDownloadWidget::setEnabled(Control control, bool enabled)
{
    QWidget* widgets[] = {refreshButton, startButton, stopButton, moduleTree, descriptionBox};
    if (QWidget* target = widgets[control])
        target->setEnabled(enabled);
}

void CDownloadWidget::setStartText(const QString& label)
{
    if (startButton)
        startButton->setText(label);
}

void CDownloadWidget::setBusy(bool busy)
{
    if (!dialog)
        return;
    if (busy)
        dialog->setCursor(Qt::WaitCursor);
    else
        dialog->unsetCursor();
}

void CDownloadWidget::showProgress(int maximum)
{
    if (!progressBar)
        return;
    progressBar->show();
    progressBar->setMaximum(maximum);
}

void CDownloadWidget::setProgressMaximum(int maximum)
{
    if (progressBar)
        progressBar->setMaximum(maximum);
}

void CDownloadWidget::setProgressValue(int value)
{
    if (progressBar)
        progressBar->setValue(qMin(value, progressBar->maximum()));
}

void CDownloadWidget::resetProgress()
{
    if (!progressBar)
        return;
    progressBar->setMaximum(0);
    progressBar->setValue(0);
    progressBar->reset();
    progressBar->hide();
}

void CDownloadWidget::clearRows()
{
    if (moduleTree)
        moduleTree->clear();
}

void CDownloadWidget::addConfigurationRow(const dlModule& configuration,
                                          const dlListModule& modules)
{
    if (!moduleTree)
        return;
    auto* row = new CDlCheckListItem(this, moduleTree, dlLocalText(configuration.name),
                                     CDlCheckListItem::CheckBox);
    fillColumns(row, configuration);
    row->module = configuration;
    row->textSlot1 = dlLocalText(configuration.descPath);
    row->childMarker = modules.count > 0;
    for (int i = 0; i < modules.count; ++i) {
        auto* child = new CDlListViewItem(static_cast<QTreeWidgetItem*>(row));
        fillColumns(child, modules.modules[i]);
        child->module = modules.modules[i];
    }
}

void CDownloadWidget::addModuleRow(const dlModule& record, const QString& descriptionFile)
{
    if (!moduleTree)
        return;
    auto* row = new CDlCheckListItem(this, moduleTree, dlLocalText(record.name),
                                     CDlCheckListItem::CheckBox);
    fillColumns(row, record);
    row->module = record;
    row->textSlot1 = descriptionFile;
}

int CDownloadWidget::rowCount() const
{
    return moduleTree ? moduleTree->topLevelItemCount() : 0;
}

std::vector<dlModule> CDownloadWidget::checkedRecords() const
{
    std::vector<dlModule> out;
    for (int i = 0; i < rowCount(); ++i) {
        auto* row = dynamic_cast<CDlCheckListItem*>(moduleTree->topLevelItem(i));
        if (!isTicked(row))
            continue;
        if (row->childCount() == 0) {
            out.push_back(row->module);
            continue;
        }
        for (int c = 0; c < row->childCount(); ++c)
            if (auto* child = dynamic_cast<CDlListViewItem*>(row->child(c)))
                out.push_back(child->module);
    }
    return out;
}

void CDownloadWidget::uncheckAll()
{
    for (int i = 0; i < rowCount(); ++i) {
        QTreeWidgetItem* row = moduleTree->topLevelItem(i);
        if (row->flags() & Qt::ItemIsUserCheckable)
            row->setCheckState(0, Qt::Unchecked);
    }
}

void CDownloadWidget::selectFirstRow()
{
    if (!moduleTree)
        return;
    moduleTree->setFocus();
    if (moduleTree->topLevelItemCount() > 0)
        moduleTree->setCurrentItem(moduleTree->topLevelItem(0));
}

void CDownloadWidget::clearDescription()
{
    if (descriptionBox)
        descriptionBox->clear();
}

void CDownloadWidget::changeState()
{
    if (!dialog)
        return;
    const bool ticked = isSelect();
    startButton->setEnabled(ticked);
    refreshButton->setEnabled(!ticked);
}

bool CDownloadWidget::isSelect() const
{
    for (int i = 0; i < rowCount(); ++i)
        if (isTicked(dynamic_cast<CDlCheckListItem*>(moduleTree->topLevelItem(i))))
            return true;
    return false;
}

// ---------------------------------------------------------------------------
// Rows of the tree

void CDownloadWidget::selectionChanged()
{
    if (!moduleTree)
        return;
    const QList<QTreeWidgetItem*> selected = moduleTree->selectedItems();
    if (selected.isEmpty())
        return;
    QTreeWidgetItem* item = selected.first();
    if (!item->parent()) {
        auto* row = dynamic_cast<CDlCheckListItem*>(item);
        if (row && !row->childMarker)
            insertDescription(row->textSlot1, 0, 0);
        return;
    }
    if (auto* parentRow = dynamic_cast<CDlCheckListItem*>(item->parent()))
        insertDescription(parentRow->textSlot1, 0, 0);
}

void CDownloadWidget::itemClickedSlot(QTreeWidgetItem*, int)
{
    changeState();
}

void CDownloadWidget::doubleClickedToDl(QTreeWidgetItem* item)
{
    if (!item)
        return;
    if (auto* row = dynamic_cast<CDlCheckListItem*>(item); row && row->childMarker)
        return;
    item->setExpanded(false);
    // The dialog has a single tree; the move buttons of the two-tree layout
    // are not part of it, so collapsing is all that remains to do.
}

void CDownloadWidget::doubleClickedFromDl(QTreeWidgetItem* item)
{
    if (!item || !moduleTree)
        return;
    if (QTreeWidgetItem* parent = item->parent())
        parent->removeChild(item);
    else if (item->treeWidget())
        item->treeWidget()->takeTopLevelItem(item->treeWidget()->indexOfTopLevelItem(item));
    moduleTree->addTopLevelItem(item);
    item->setExpanded(false);
}

void CDownloadWidget::insertDescription(QString file, int, int)
{
    if (!descriptionBox)
        return;
    if (!file.isEmpty() && QFile::exists(file)) {
        QFile description(file);
        if (!description.open(QIODevice::ReadOnly))
            return;
        descriptionBox->clear();
        descriptionBox->setText(QString::fromLocal8Bit(description.readAll()));
        return;
    }
    descriptionBox->clear();
    descriptionBox->setText(text("MD0042"));
}

