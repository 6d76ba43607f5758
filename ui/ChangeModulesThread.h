#pragma once
// The installation worker: runs the dialog's hand-over of the fetched files
// to the updater off the GUI thread, reporting progress by signals that the
// progress dialog receives queued.
#include <atomic>

#include <QThread>

class CDownloadWidget;

class ChangeModulesThread : public QThread {
    Q_OBJECT
public:
    explicit ChangeModulesThread(CDownloadWidget* widget);

    // -1 until run() has ended; then what the hand-over returned.
    int result() const { return result_; }
    // Asks the hand-over to stop after the file being served. Any thread.
    void requestStop() { stop_ = true; }
    bool stopRequested() const { return stop_; }

signals:
    void ValueChanged(int value);
    void MinimumChanged(int minimum);
    void MaximumChanged(int maximum);

protected:
    void run() override;

private:
    CDownloadWidget* widget_;
    std::atomic<int> result_{-1};
    std::atomic<bool> stop_{false};
};
