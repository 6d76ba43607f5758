#pragma once
// The module's boxes, as the update workflow asks them. The dialog shows
// them as windows that wait for the user; a test answers them directly.
#include <vector>

#include <QString>
#include <QStringList>

#include "update/DlModule.h"

class IUpdatePrompts {
public:
    virtual ~IUpdatePrompts() = default;

    virtual void information(const QString& title, const QString& text) = 0;
    virtual void critical(const QString& title, const QString& text) = 0;
    // The small box with OK and Cancel; 0 for OK.
    virtual int question(const QString& title, const QString& text) = 0;
    // Runs the hand-over (CUpdateWorkflow::installationWork) with the progress
    // window; the hand-over's result, or cancelled set when the user stopped it.
    virtual int runInstallation(bool& cancelled) = 0;
    // The report of the installed records and of the files refused by the
    // release check (" - NAME: REASON"), waiting until it is closed.
    virtual void showReport(const std::vector<dlModule>& installed, const QStringList& refused) = 0;
};
