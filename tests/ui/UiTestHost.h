#pragma once
// A host for the dialog's tests: folders in a temporary tree, the reference
// host's parameter store, installed products, the menu entry and connection.
#include <functional>
#include <vector>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "host/store/ParameterStore.h"
#include "protocol/HostMessages.h"
#include "storage/RecordText.h"
#include "support/InstalledProductsHost.h"
#include "support/TestHost.h"
#include "protocol/DialogRecords.h"

class UiTestHost : public TestHost {
public:
    static constexpr int32_t kMenuId = 77;

    explicit UiTestHost(const QString& root)
        : downloadDir(root + QStringLiteral("/download")), configDir(root + QStringLiteral("/config"))
    {
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
        case HostMsg::AddMenuItem:
            menuText = QString::fromLocal8Bit(fieldBytes(reinterpret_cast<coreMenuItem*>(param1)->text));
            reinterpret_cast<coreMenuItem*>(param1)->id = kMenuId;
            return 0;
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
