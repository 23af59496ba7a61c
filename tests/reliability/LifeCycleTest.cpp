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

size_t cycles(size_t usual) {
    return countFor("VORN_LIFE_CYCLES", kIsSanitized ? usual / 20 : usual);
}

// Heap and mappings grow no more from the tenth round on, but for what malloc keeps in its own
// lists: seven bytes lost in each of ten thousand rounds are too many.
class Footprint {
public:
    void check() {
        const size_t heap = mallinfo2().uordblks;
        const size_t mappings = foreign::countMappings("");
        if (++m_round <= 10) {
            m_heap = heap;
            m_mappings = mappings;
        }
        ASSERT_LE(heap, m_heap + 65536) << "round " << m_round;
        ASSERT_LE(mappings, m_mappings + (kIsSanitized ? 1000 : 20)) << "round " << m_round;
    }

private:
    size_t m_round = 0, m_heap = 0, m_mappings = 0;
};

void expectNeutral(World& w) {
    const ISettings* s = w.s;
    foreign::g_host.log.clear();
    s->setInt64("/a", 1);
    s->setStringArray("/a", nullptr, 0);
    s->destroyItem("/a");
    auto* stale = reinterpret_cast<Transaction*>(&w); // never looked at
    s->commitTransaction(stale);
    s->destroyTransaction(stale);
    s->unsubscribeToChangeEvents(nullptr);
    s->initializeFromDictionary(nullptr);
    EXPECT_EQ(s->getItemType("/a"), ItemType::eCount);
    EXPECT_EQ(s->getAsInt64("/a"), 0);
    EXPECT_EQ(s->getStringBuffer("/a"), nullptr);
    EXPECT_EQ(s->createTransaction(), nullptr);
    EXPECT_EQ(s->subscribeToTreeChangeEvents("/a", &World::hearTree, &w), nullptr);
    EXPECT_EQ(s->getSettingsDictionary("/a"), nullptr);
    EXPECT_EQ(s->createDictionaryFromSettings("/a"), nullptr);
    EXPECT_EQ(foreign::g_host.log.size(), foreign::g_host.hasLogging ? 12u : 0u);
}

TEST(LifeCycle, UnloadingLeavesNothingBehind) {
    Footprint footprint;
    for (size_t i = 0; i < cycles(10000); ++i) {
        {
            World w(true);
            foreign::g_host.hasLogging = i % 2;
            w.registerPlugins();
            ASSERT_EQ(foreign::g_host.sources.size(), 2 * (i % 2));
            expectNeutral(w);
            w.startUp();
            w.fill();
            w.subscribeMany();
            w.s->setInt64("/a/probe", 1);
            ASSERT_GT(w.changesHeard, 0u);
            ASSERT_GT(foreign::countMappings(".plugin.so"), 0u);
        }
        ASSERT_EQ(countLiveAllocations(), 0u);
        ASSERT_TRUE(foreign::g_host.sources.empty());
        ASSERT_EQ(foreign::countMappings(".plugin.so"), 0u);
        footprint.check();
    }
}

TEST(LifeCycle, StoppingLeavesNothingBehind) {
    Footprint footprint;
    World w(true);
    w.registerPlugins();
    for (size_t i = 0; i < cycles(1000); ++i) {
        expectNeutral(w);
        ASSERT_EQ(countLiveAllocations(), 0u);
        w.startUp();
        w.fill();
        w.subscribeMany();
        w.s->setInt64("/a/probe", 1);
        ASSERT_EQ(w.changesHeard.exchange(0), 18u); // nobody from before
        w.shutDown();
        foreign::g_host.calls.clear();
        footprint.check();
    }
}

} // namespace
} // namespace reliability
