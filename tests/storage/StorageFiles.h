#pragma once
// The hand-written sample files under tests/data, and a test host whose
// parameter-file codes (3163-3170) are answered by the reference host's own
// store, so the module's side is tested against the real tree and the real
// XML files.
#include <QString>

#include "host/store/ParameterStore.h"
#include "support/TestHost.h"
#include "transfer/support/FileHelpers.h"

inline QString dataFile(const char* name)
{
    return QStringLiteral(DM_TEST_DATA_DIR "/") + QLatin1String(name);
}

class StoreTestHost : public TestHost {
public:
    StoreTestHost()
    {
        extraHandler = [this](unsigned int code, intptr_t param1, intptr_t param2) {
            return ParameterStore::handles(code) ? store.handleMessage(code, param1, param2) : 0;
        };
    }

    ParameterStore store;
};
