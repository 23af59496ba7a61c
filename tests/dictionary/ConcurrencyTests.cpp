// Threads that read, write, create and remove at once, as the contract's thread tags allow. Meant
// for the thread sanitizer too.
#include "DictionaryFixture.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

namespace vorn::dictionary {
namespace {

constexpr size_t kItems = 16;

class Threads : public DictionaryTest {
protected:
    // The text of value number n: an even integer, an odd number and a half, or "s", n and a tail.
    static std::string textOf(int64_t n) {
        return n % 3 == 0   ? std::to_string(2 * n)
               : n % 3 == 1 ? std::to_string(2 * n + 1) + ".5"
                            : "s" + std::to_string(n) + std::string(n % 50, 'x');
    }
    static bool isWhole(const std::string& text) {
        return textOf(text[0] == 's' ? std::stoll(text.substr(1)) : std::stoll(text) / 2) == text;
    }
};

TEST_F(Threads, NoReadIsTornNoWriteIsLostNoItemIsMissing) {
    std::vector<Item*> items;
    std::string last[2][kItems];         // by writer
    std::vector<const Item*> created[2]; // by creator
    for (size_t i = 0; i < kItems; ++i) {
        items.push_back(d->makeIntAtPath(root, ("w/" + std::to_string(i)).c_str(), 0));
    }
    const Item* grown = d->makeDictionaryAtPath(root, "grown");
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1200);
    const auto goesOn = [&] { return !HasFailure() && std::chrono::steady_clock::now() < end; };
    const auto read = [&] {
        std::vector<const Item*> seen;
        for (size_t n = 0; goesOn(); ++n) {
            const Item* item = at("w/" + std::to_string(n % kItems));
            EXPECT_EQ(item, items[n % kItems]);
            EXPECT_PRED1(isWhole, text(item));
            const double rest = std::fmod(d->getAsFloat64(item), 2);
            EXPECT_TRUE(rest == 0 || rest == 1.5) << rest;
            const size_t count = d->getItemChildCount(grown);
            ASSERT_GE(count, seen.size());
            while (seen.size() < count) {
                seen.push_back(d->getItemChildByIndex(grown, seen.size()));
            }
            EXPECT_TRUE(!count || d->getItemChildByIndex(grown, n % count) == seen[n % count]);
        }
    };
    const auto overwrite = [&](size_t writer) {
        for (size_t n = 0; goesOn(); ++n) {
            const size_t i = n % kItems;
            const auto number = static_cast<int64_t>(2 * n + writer);
            number % 3 == 0   ? d->setInt64(items[i], 2 * number)
            : number % 3 == 1 ? d->setFloat64(items[i], static_cast<double>(2 * number) + 1.5)
                              : d->setString(items[i], textOf(number).c_str());
            last[writer][i] = textOf(number);
        }
    };
    const auto create = [&](size_t creator) {
        for (size_t n = 0; n < 30000 && goesOn(); ++n) {
            const std::string both = "grown/" + std::to_string(n) + "/both";
            created[creator].push_back(d->createItem(root, both.c_str(), kInt));
        }
    };
    const auto remove = [&] {
        const std::vector<int64_t> ints(50, 4);
        for (size_t n = 1; goesOn(); ++n) {
            Item* array = d->createItem(root, "mine/array", kDict);
            d->setInt64Array(array, ints.data(), n * 7 % ints.size());
            Item* copy = d->makeDictionaryAtPath(nullptr, "copy");
            d->update(copy, nullptr, root, "w", nullptr, nullptr); // beside the writers
            for (size_t i = 0; i < kItems; ++i) {
                EXPECT_PRED1(isWhole, text(d->getItemAt(copy, i)));
            }
            d->destroyItem(copy);
            d->destroyItem(n % 2 ? array : d->getItemParentMutable(array));
        }
    };
    std::vector<std::thread> threads;
    for (size_t i = 0; i < 2; ++i) {
        threads.emplace_back(read);
        threads.emplace_back(overwrite, i);
        threads.emplace_back(create, i);
    }
    threads.emplace_back(remove);
    std::for_each(threads.begin(), threads.end(), [](std::thread& each) { each.join(); });

    for (size_t i = 0; i < kItems; ++i) {
        EXPECT_TRUE(text(items[i]) == last[0][i] || text(items[i]) == last[1][i]) << i;
    }
    for (const std::vector<const Item*>& own : created) {
        for (size_t n = 0; n < own.size(); ++n) {
            ASSERT_EQ(at("grown/" + std::to_string(n) + "/both"), own[n]);
        }
    }
    EXPECT_EQ(d->getItemChildCount(grown), std::max(created[0].size(), created[1].size()));
}

} // namespace
} // namespace vorn::dictionary
