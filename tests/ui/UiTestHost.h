#pragma once
// A host for the dialog's tests: folders in a temporary tree, the parameter
// files answered by the reference host's store, installed configurations and
// module tables from plain tables, the dialog's menu entry and connection
// state, and the answers to modal boxes the dialog opens.
#include <cstring>
#include <functional>
#include <map>
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
#include "module/HostMessages.h"
#include "module/RecordText.h"
#include "support/TestHost.h"
#include "ui/DialogRecords.h"
#include "ui/DownloadMessInfo.h"
#include "update/UpdateRecords.h"

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
        case HostMsg::ConfigurationCount:
            *reinterpret_cast<int32_t*>(param1) = int32_t(configs.size());
            return 0;
        case HostMsg::ConfigurationList: {
            auto* request = reinterpret_cast<coreConfigListRequest*>(param1);
            const size_t n = qMin<size_t>(size_t(request->count), configs.size());
            if (n > 0)
                std::memcpy(request->configs, configs.data(), n * sizeof(coreNameConfig));
            return 0;
        }
        case HostMsg::ModuleTable: {
            auto* request = reinterpret_cast<coreModuleTableRequest*>(param1);
            const auto found = tables.find(request->tableId);
            if (found == tables.end())
                return 1;
            const size_t n = qMin<size_t>(size_t(request->count), found->second.size());
            if (n > 0)
                std::memcpy(request->entries, found->second.data(), n * sizeof(coreModuleEntry));
            return 0;
        }
        case HostMsg::QueryModuleVersion:
            return -1;
        default:
            return 0;
        }
    }

    void addConfiguration(const char* name, int major, int minor, int build, bool current,
                          int32_t tableId, std::vector<coreModuleEntry> modules)
    {
        coreNameConfig config;
        std::memset(&config, 0, sizeof config);
        copyToField(config.name, QByteArray(name));
        config.major = major;
        config.minor = minor;
        config.build = build;
        config.current = current ? 1 : 0;
        config.moduleCount = int32_t(modules.size());
        config.moduleTableId = tableId;
        configs.push_back(config);
        tables[tableId] = std::move(modules);
    }

    static coreModuleEntry module(const char* name, int major, int minor, int build)
    {
        coreModuleEntry entry;
        std::memset(&entry, 0, sizeof entry);
        copyToField(entry.name, QByteArray(name));
        entry.major = major;
        entry.minor = minor;
        entry.build = build;
        return entry;
    }

    QString downloadDir;
    QString configDir;
    bool onLine = true;
    QString menuText;
    ParameterStore store;
    std::vector<coreNameConfig> configs;
    std::map<int32_t, std::vector<coreModuleEntry>> tables;
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
