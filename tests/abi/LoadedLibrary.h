#pragma once
// The built library, loaded the way a host loads it, and a host callback that
// keeps what the library sends while it registers.
#include <dlfcn.h>

#include <vector>

#include <QByteArray>
#include <gtest/gtest.h>

#include "protocol/HostMessages.h"
#include "protocol/ModuleApi.h"

class LoadedLibrary : public ::testing::Test {
protected:
    struct Received {
        unsigned int code;
        QByteArray record;  // for 3019: the 3072 bytes behind param1, copied on arrival
    };

    void SetUp() override
    {
        handle_ = dlopen(DM_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, handle_) << dlerror();
        received().clear();
    }
    void TearDown() override
    {
        if (handle_)
            dlclose(handle_);
    }
    template <class F>
    F symbol(const char* name)
    {
        void* found = dlsym(handle_, name);
        EXPECT_NE(nullptr, found) << name;
        return reinterpret_cast<F>(found);
    }

    static std::vector<Received>& received()
    {
        static std::vector<Received> messages;
        return messages;
    }
    static int recordingHost(void*, unsigned int code, intptr_t param1, intptr_t)
    {
        Received message{code, {}};
        if (code == HostMsg::RegisterTranslation)
            message.record = QByteArray(reinterpret_cast<const char*>(param1), 3072);
        received().push_back(message);
        return 0;
    }

    // Sends 3007 with a one-entry argument vector to the loaded library's own
    // entry points, with recordingHost installed; returns ReceiveMessage's answer.
    int registerWithRecordingHost(void* hostParam)
    {
        auto initialize = symbol<InitializeFn>("Initialize");
        auto receiveMessage = symbol<ReceiveMessageFn>("ReceiveMessage");
        if (!initialize || !receiveMessage)
            return -1;
        initialize(&recordingHost, &recordingHost, hostParam, nullptr);
        char program[] = "host";
        char* argv[] = {program};
        return receiveMessage(hostParam, HostMsg::CommandLine, 1, reinterpret_cast<intptr_t>(argv));
    }

    void* handle_ = nullptr;
};
