// Loading, starting, stopping and unloading, thousands of times, with callers that leave open what
// they should have closed. VORN_LIFE_CYCLES sets how many times.
#include "World.h"

#include <gtest/gtest.h>
#include <malloc.h>

namespace reliability {
namespace {

// Under sanitizers loading takes long, and freed memory is kept for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

// Does it so many times. Heap and mappings grow no more from the tenth round on, but for what
// malloc keeps in its own lists: seven bytes lost in each of ten thousand rounds are too many.
template <class Act>
void repeat(size_t usual, Act act) {
    const size_t rounds = countFor("VORN_LIFE_CYCLES", kIsSanitized ? usual / 20 : usual);
    size_t heap = SIZE_MAX / 2, mappings = SIZE_MAX / 2;
    for (size_t round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        act(round);
        if (round == 9) {
            heap = mallinfo2().uordblks;
            mappings = foreign::countMappings("");
        }
        EXPECT_LE(mallinfo2().uordblks, heap + 65536);
        // The thread sanitizer keeps some of its own for each library.
        EXPECT_LE(foreign::countMappings(""), mappings + (kIsSanitized ? 4 * round : 20));
    }
}

void expectNeutral(World& w) {
    foreign::g_host.log.clear();
    w.s->setInt64("/a", 1);
    w.s->destroyItem("/a");
    auto* stale = reinterpret_cast<Transaction*>(&w); // never looked at
    w.s->commitTransaction(stale);
    w.s->destroyTransaction(stale);
    w.s->initializeFromDictionary(nullptr);
    EXPECT_EQ(w.s->getItemType("/a"), ItemType::eCount);
    EXPECT_EQ(w.s->getStringBuffer("/a"), nullptr);
    EXPECT_EQ(w.s->createTransaction(), nullptr);
    EXPECT_EQ(w.s->subscribeToTreeChangeEvents("/a", &World::hearTree, &w), nullptr);
    EXPECT_EQ(foreign::g_host.log.size(), foreign::g_host.hasLogging ? 8u : 0u);
}

// Starts them and leaves subscriptions and a transaction open.
void use(World& w) {
    w.startUp();
    w.fill();
    w.subscribeMany();
    w.s->setInt64("/a/probe", 1);
    EXPECT_EQ(w.changesHeard.exchange(0), 18u) << "and nobody from before";
}

TEST(LifeCycle, UnloadingLeavesNothingBehind) {
    repeat(10000, [](size_t round) {
        {
            World w(true);
            foreign::g_host.hasLogging = round % 2;
            w.registerPlugins();
            EXPECT_EQ(foreign::g_host.sources.size(), 2 * (round % 2));
            expectNeutral(w);
            use(w);
            EXPECT_GT(foreign::countMappings(".plugin.so"), 0u);
        }
        EXPECT_EQ(countLiveAllocations(), 0u);
        EXPECT_TRUE(foreign::g_host.sources.empty());
        EXPECT_EQ(foreign::countMappings(".plugin.so"), 0u);
    });
}

TEST(LifeCycle, StoppingLeavesNothingBehind) {
    World w(true);
    w.registerPlugins();
    repeat(1000, [&w](size_t) {
        expectNeutral(w);
        EXPECT_EQ(countLiveAllocations(), 0u);
        use(w);
        w.shutDown();
        foreign::g_host.calls.clear();
    });
}

} // namespace
} // namespace reliability
