#pragma once
// A host for the dialog's tests: folders in a temporary tree, the parameter
// files answered by the reference host's store, installed configurations and
// module tables from plain tables, the dialog's menu entry and connection
// state, and the answers to modal boxes the dialog opens.
#include <functional>
#include <vector>

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTimer>

#include "host/store/ParameterStore.h"
#include "protocol/HostMessages.h"
#include "storage/RecordText.h"
#include "support/InstalledProductsHost.h"
#include "support/TestHost.h"
#include "protocol/DialogRecords.h"
#include "ui/DownloadMessInfo.h"

class UiTestHost : public TestHost {
public:
    static constexpr int32_t kMenuId = 77;

    explicit UiTestHost(const QString& root)
    {
        downloadDir = root + QStringLiteral("/download");
        configDir = root + QStringLiteral("/config");
        QDir().mkpath(configDir);
        folders[101] = downloadDir;
        folders[2] = configDir;
        extraHandler = [this](unsigned int code, intptr_t param1, intptr_t param2) {
            return answer(code, param1, param2);
        };
    }

    int answer(unsigned int code, intptr_t param1, intptr_t param2)
    {
        if (ParameterStore::handles(code))
            return store.handleMessage(code, param1, param2);
        if (InstalledProductsHost::handles(code))
            return products.answer(code, param1);
        switch (code) {
        case HostMsg::QueryConnectState:
            reinterpret_cast<mwiSetStateConnect*>(param1)->state = onLine ? 1 : 0;
            return 0;
        case HostMsg::AddMenuItem: {
            auto* entry = reinterpret_cast<coreMenuItem*>(param1);
            menuText = QString::fromLocal8Bit(fieldBytes(entry->text));
            entry->id = kMenuId;
            return 0;
        }
        case HostMsg::QueryModuleVersion:
            return knowsEveryModule ? 0 : -1;
        default:
            return 0;
        }
    }

    QString downloadDir;
    QString configDir;
    bool onLine = true;
    bool knowsEveryModule = false;  // 3089's answer: installed (0) or unknown (-1)
    QString menuText;
    ParameterStore store;
    InstalledProductsHost products;  // 3086-3088 and 3209
};

// Answers the next message box or question box the dialog opens by pressing
// its first button (OK / Yes), and keeps its title and text.
class ModalAnswerer : public QObject {
public:
    ModalAnswerer()
    {
        connect(&timer_, &QTimer::timeout, this, [this] { look(); });
        timer_.start(20);
    }

    struct Seen {
        QString title;
        QString text;
    };
    std::vector<Seen> seen;

private:
    void look()
    {
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (!window->isVisible())
                continue;
            if (auto* box = qobject_cast<QMessageBox*>(window)) {
                seen.push_back({box->windowTitle(), box->text()});
                box->buttons().first()->click();
                return;
            }
            if (auto* question = dynamic_cast<CDownloadMessInfo*>(window)) {
                seen.push_back({question->windowTitle(), question->textLabel()->text()});
                question->okButton()->click();
                return;
            }
        }
    }
    QTimer timer_;
};
