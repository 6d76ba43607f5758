#pragma once
// The installation's half without a window: the fetched records are
// unpacked and handed one by one to the updater program (CUpdaterSession),
// each outcome is written to the state file and told to the host, and the
// installed records make the report. The hand-over runs on a worker thread;
// every host call and state-file change is made on the workflow's thread.
#include <functional>
#include <vector>

#include <QString>

#include "update/DlModule.h"

class CUpdateWorkflow;

class CInstallation {
public:
    explicit CInstallation(CUpdateWorkflow& flow) : flow_(flow) {}

    // The records of the run, or -1 when the updater could not be used;
    // range and value report progress, stopRequested is polled between files.
    int handOver(const std::function<void(int, int)>& range, const std::function<void(int)>& value,
                 const std::function<bool()>& stopRequested);
    // Marks record installed in the state file and, for a module of the
    // current configuration installed with success, tells the host (3529).
    void setInfoAboutSuccessModuleUpdate(bool success, const dlModule& record, int configIndex);
    // Moves source into destination, keeping a copy of what it replaces in
    // backup; false when the file could not be put in place.
    static bool moveFiles(const QString& source, const QString& destination, const QString& backup);
    // Shows the report when every record of the run (count) was installed,
    // then forgets the run.
    void report(int count);
    int installedCount() const { return installCount_; }

private:
    template <class F>
    void onWorkflowThread(F f);

    CUpdateWorkflow& flow_;
    int installCount_ = 0;
};
