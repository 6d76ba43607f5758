#pragma once
// The automatic mode: with the option on and a stored state file, the
// current configuration's module list and the module description list are
// fetched, the newer files chosen without asking, recorded as a run and
// fetched; otherwise the lists are searched for the user.
#include <vector>

#include <QString>

#include "protocol/UpdateRecords.h"
#include "update/DlModule.h"

class CUpdateWorkflow;

class CAutoChoice {
public:
    explicit CAutoChoice(CUpdateWorkflow& flow) : flow_(flow) {}

    void startAutoDownload();
    // Completions: the configuration list, then the configuration's module
    // list (param 0: newer, 1: not) and the module description list.
    void autoDownloadConfig(const QString& file);
    void autoDownloadConfigDescr(const QString& file, int param);

    bool isOn() const { return autoMode_; }
    const std::vector<coreModuleEntry>& moduleTable() const { return moduleTable_; }

private:
    void takeOfferedForAuto(const dlListModule& offered);

    CUpdateWorkflow& flow_;
    bool autoMode_ = false;
    coreNameConfig currentConfig_{};
    std::vector<coreModuleEntry> moduleTable_;
};
