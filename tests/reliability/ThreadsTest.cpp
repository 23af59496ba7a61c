// The settings table on many threads, as its thread tags allow: writers, readers, merges, whole
// arrays and copies, with subscribers that hear everything. Meant for the thread sanitizer too.
// VORN_SOAK_SECONDS sets how long.
#include "World.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <numeric>

namespace reliability {
namespace {

constexpr const char* kElementPath = "/a/path/that/needs/a/pooled/string/of/the/larger/size/";

TEST(Threads, EveryWriteIsStoredAndToldOnce) {
    World w(true, false);
    w.registerPlugins();
    w.startUp();
    w.fill();
    const ISettings* s = w.s;
    std::atomic<bool> isOver{false};
    std::array<size_t, 3> written{};
    const auto write = [&](size_t writer) {
        const std::string own = kElementPath + std::to_string(writer);
        for (size_t n = 0; !isOver; ++n, ++written[writer]) {
            s->setInt64At(own.c_str(), n % 100, static_cast<int64_t>(n)); // path in a pooled string
            EXPECT_EQ(s->getAsInt64At(own.c_str(), n % 100), static_cast<int64_t>(n));
            s->setStringAt("/a/path", n % 5, own.c_str()); // beside all other writers
            const char* text = s->createStringBufferFromItemValueAt("/a/path", n % 5);
            EXPECT_EQ(std::string(text).rfind(kElementPath, 0), 0u);
            s->destroyStringBuffer(text);
        }
    };
    const auto merge = [&] {
        const int64_t numbers[] = {1, 2, 3, 4, 5, 6, 7, 8};
        for (size_t n = 0; !isOver; ++n) {
            s->update("/merged", w.source, nullptr, nullptr, nullptr);
            s->setInt64Array("/numbers", numbers, n % 8);
            EXPECT_EQ(s->getArrayLength("/numbers"), n % 8);
            Item* copy = s->createDictionaryFromSettings("/merged");
            EXPECT_EQ(w.show(copy), w.show(w.source));
            w.d->destroyItem(copy);
            s->destroyItem(n % 2 ? "/merged" : "/numbers");
        }
    };
    const auto time = [&] {
        std::this_thread::sleep_for(std::chrono::seconds(countFor("VORN_SOAK_SECONDS", 1)));
        isOver = true;
    };
    runOnThreads({time, merge, [&] { write(0); }, [&] { write(1); }, [&] { write(2); }});
    EXPECT_GT(*std::min_element(written.begin(), written.end()), 0u);
    EXPECT_EQ(w.changesHeard, 2 * std::accumulate(written.begin(), written.end(), size_t{0}));
}

} // namespace
} // namespace reliability
