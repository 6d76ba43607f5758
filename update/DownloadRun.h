#pragma once
// A download run: the size of every chosen file is probed, the run is
// recorded in the state file (files already complete on disk are not
// fetched again), then the files are fetched one after another. Three failed
// rounds in a row end in the error box; Start pauses a running run, Stop
// ends it and deletes what it fetched.
#include <vector>

#include <QString>

#include "update/DlModule.h"

class CUpdateWorkflow;

class CDownloadRun {
public:
    explicit CDownloadRun(CUpdateWorkflow& flow) : flow_(flow) {}

    // The buttons.
    void clickStartDownload();
    void clickStopDownload();
    void clickRefreshDownload();

    // From the ticked rows (a new run) or on from where a paused run stopped.
    void startDownload();
    // Probes every chosen record from the first.
    void probeAll();
    // Continuation of a stored run: chooses its records still to fetch and
    // asks for a fresh module list; false when none is left to fetch.
    bool fetchStoredRecords();

    // Completions.
    void getSizeFile(long size);
    void addBytesOnDisk(long bytes);
    void setProgress(int done);
    void downloadModule(const QString& file, bool notFound);
    void getNewModule(const QString& file);
    void errorRead();

    int totalBytes() const { return totalBytes_; }

private:
    void probeNext();
    void fetchRecord(int index);
    void fetchNextOrInstall();
    void recordRun(int& count);
    bool askHostForModule(const dlModule& record);
    void deleteRunFiles();

    CUpdateWorkflow& flow_;
    int moduleIndex_ = 0;
    std::vector<long> probedSizes_;  // each probed record's size, in probing order
    int totalBytes_ = 0;
    int bytesOnDisk_ = 0;
    bool refreshPending_ = false;
};
