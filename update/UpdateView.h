#pragma once
// What the update workflow shows: the window's status line, progress bar,
// information text, rows and which controls may be used. The dialog
// implements it with its controls; without a window every call does nothing
// and hasWindow() says so. Tests implement it to see what a user would see.
#include <vector>

#include <QString>

#include "update/DlModule.h"

class IUpdateView {
public:
    enum Control { Refresh, Start, Stop, Tree, Description };

    virtual ~IUpdateView() = default;

    virtual bool hasWindow() const = 0;
    // An empty text clears the status line; a timeout clears it later.
    virtual void setStatus(const QString& text, int timeoutMs = 0) = 0;
    virtual void setInfo(const QString& text) = 0;
    virtual void setEnabled(Control control, bool enabled) = 0;
    virtual void setStartText(const QString& text) = 0;
    virtual void setBusy(bool busy) = 0;

    virtual void showProgress(int maximum) = 0;
    virtual void setProgressMaximum(int maximum) = 0;
    // Shown no higher than the bar's maximum.
    virtual void setProgressValue(int value) = 0;
    // Empties and hides the bar.
    virtual void resetProgress() = 0;

    virtual void clearRows() = 0;
    virtual void addConfigurationRow(const dlModule& configuration, const dlListModule& modules) = 0;
    virtual void addModuleRow(const dlModule& module, const QString& descriptionFile) = 0;
    virtual int rowCount() const = 0;
    // The ticked rows' records: a configuration's modules, or the row's own.
    virtual std::vector<dlModule> checkedRecords() const = 0;
    virtual void uncheckAll() = 0;
    virtual void selectFirstRow() = 0;
    virtual void clearDescription() = 0;
    // Start usable while a row is ticked, Refresh while none is.
    virtual void changeState() = 0;
    virtual bool isSelect() const = 0;
};
