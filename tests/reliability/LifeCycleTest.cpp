// Loading, starting, stopping and unloading, thousands of times, with callers that leave open what
// they should have closed. VORN_LIFE_CYCLES sets how many times.
#include "World.h"

#include <gtest/gtest.h>
#include <malloc.h>

namespace reliability {
namespace {

// Under sanitizers loading takes long, and freed memory is kept for a while.
constexpr bool kIsSanitized =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    true;
#elif defined(__has_feature)
    __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
    false;
#endif

// Starts them, and stops them with subscriptions and a transaction left open.
void live(World& w) {
    w.startUp();
    w.fill();
    w.subscribeMany();
    w.s->setInt64("/a/probe", 1);
    EXPECT_EQ(w.changesHeard.exchange(0), 18u) << "and nobody from before";
    w.shutDown();
    EXPECT_EQ(countLiveAllocations(), 0u);
}

void liveTwice(bool hasLogging) {
    World w(true);
    foreign::g_host.hasLogging = hasLogging;
    w.registerPlugins();
    EXPECT_EQ(foreign::g_host.sources.size(), hasLogging ? 2u : 0u);
    live(w);
    live(w);
    EXPECT_GT(foreign::countMappings(".plugin.so"), 0u);
}

// Heap and mappings grow no more from the tenth round on, but for what malloc keeps in its own
// lists: seven bytes lost in each of ten thousand rounds are too many.
TEST(LifeCycle, StoppingAndUnloadingLeaveNothingBehind) {
    const size_t rounds = countFor("VORN_LIFE_CYCLES", kIsSanitized ? 500 : 10000);
    size_t heap = SIZE_MAX / 2, mappings = SIZE_MAX / 2;
    for (size_t round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        liveTwice(round % 2);
        EXPECT_EQ(countLiveAllocations(), 0u);
        EXPECT_TRUE(foreign::g_host.sources.empty());
        EXPECT_EQ(foreign::countMappings(".plugin.so"), 0u);
        if (round == 9) {
            heap = mallinfo2().uordblks;
            mappings = foreign::countMappings("");
        }
        EXPECT_LE(mallinfo2().uordblks, heap + 65536);
        // The thread sanitizer keeps some of its own for each library.
        EXPECT_LE(foreign::countMappings(""), mappings + (kIsSanitized ? 4 * round : 20));
    }
}

} // namespace
} // namespace reliability
