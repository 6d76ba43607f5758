// The updater's segment server in-process: the ways it ends besides
// finished. Serving and finished are tested through the real program
// (HandOverTest.cpp).
#include <cstring>
#include <memory>
#include <thread>

#include <unistd.h>

#include <QSharedMemory>
#include <gtest/gtest.h>

#include "platform/ProcessWait.h"
#include "update/UpdaterProtocol.h"
#include "updater/UpdaterServer.h"

namespace {

QString uniqueKey()
{
    static int serial = 0;
    return QString("dm-server-test-%1-%2").arg(::getpid()).arg(++serial);
}

// The module's side of the segment.
class ModuleSide {
public:
    ModuleSide() : memory(std::make_unique<QSharedMemory>(uniqueKey()))
    {
        created = memory->create(kUpdateSegmentSize);
        if (created)
            std::memset(memory->data(), 0, kUpdateSegmentSize);
    }

    // Runs f on the record with the segment locked.
    template <class F>
    auto locked(F f)
    {
        memory->lock();
        auto result = f(*static_cast<umUpdateFile*>(memory->data()));
        memory->unlock();
        return result;
    }

    void waitForDone()
    {
        while (locked([](umUpdateFile& s) { return s.done; }) < 1)
            yield();
    }

    std::unique_ptr<QSharedMemory> memory;
    bool created = false;
};

}  // namespace

TEST(UpdaterServer, EndsWhenTheModuleDropsTheSegment)
{
    ModuleSide module;
    ASSERT_TRUE(module.created);
    CUpdaterServer server(module.memory->key(), [](const umUpdateFile&) { return 0; }, nullptr);
    CUpdaterServer::Outcome outcome = CUpdaterServer::Finished;
    std::thread updater([&] { outcome = server.run(); });

    module.waitForDone();
    module.memory.reset();  // no finished: the module went away
    updater.join();
    EXPECT_EQ(CUpdaterServer::SegmentGone, outcome);
}

TEST(UpdaterServer, GivesUpAfterItsIdleLimitAndWithoutASegment)
{
    ModuleSide module;
    ASSERT_TRUE(module.created);
    CUpdaterServer idle(module.memory->key(), [](const umUpdateFile&) { return 0; }, nullptr);
    idle.setIdleLimitMs(20);
    EXPECT_EQ(CUpdaterServer::IdleTimeout, idle.run());
    EXPECT_EQ(1, module.locked([](umUpdateFile& s) { return s.done; }));  // it did say it was ready
    EXPECT_EQ(0, idle.servedCount());

    CUpdaterServer orphan(uniqueKey(), [](const umUpdateFile&) { return 0; }, nullptr);
    EXPECT_EQ(CUpdaterServer::AttachFailed, orphan.run());
}
