#include "ui/ChangeModulesThread.h"

#include "ui/DownloadWidget.h"

ChangeModulesThread::ChangeModulesThread(CDownloadWidget* widget)
    : widget_(widget)
{
}

void ChangeModulesThread::run()
{
    result_ = -1;
    if (widget_)
        result_ = widget_->changeModulesInnerWork(this);
}
