// Threads that read, write, create and remove at once, as the contract's thread tags allow. Meant
// for the thread sanitizer too. VORN_SOAK_SECONDS sets how long the first of them takes.
#include "DictionaryFixture.h"
#include "support/Threads.h"

#include <atomic>
#include <chrono>

using namespace vorn::dictionary;

constexpr size_t kItems = 16;

class Threads : public DictionaryTest {
protected:
    // Value number n is an integer or a text with a tail, which tells whether it is whole.
    static std::string valueText(int64_t n) {
        const std::string number = std::to_string(n);
        return n % 3 == 1 ? "s" + number + std::string(n % 50, 'x') : number;
    }
    static bool isWhole(const std::string& text) {
        return valueText(std::stoll(text.substr(text[0] == 's'))) == text;
    }
    std::string write(Item* item, int64_t n) const {
        n % 3 == 1 ? d->setString(item, valueText(n).c_str()) : d->setInt64(item, n);
        return valueText(n);
    }
    static bool goesOn(std::chrono::steady_clock::time_point end) {
        return !HasFailure() && std::chrono::steady_clock::now() < end;
    }
};

TEST_F(Threads, NoReadIsTornNoWriteIsLostNoItemIsMissing) {
    std::vector<Item*> items;            // those of even index are written by both writers
    std::string last[2][kItems];         // by writer
    std::vector<const Item*> created[2]; // by creator
    for (size_t i = 0; i < kItems; ++i) {
        items.push_back(d->makeIntAtPath(root, ("w/" + std::to_string(i)).c_str(), 0));
    }
    const Item* grown = d->makeDictionaryAtPath(root, "grown");
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(countFor("VORN_SOAK_SECONDS", 2));
    const auto read = [&] {
        std::vector<const Item*> seen;
        for (size_t n = 0; goesOn(end); ++n) {
            const std::string name = std::to_string(n % kItems);
            const Item* item = at("w/" + name);
            EXPECT_EQ(item, items[n % kItems]);
            EXPECT_PRED1(isWhole, textOf(*d, item));
            EXPECT_LT(d->getAsInt64(item), 1'000'000'000'000) << "the address of a text";
            const size_t count = d->getItemChildCount(grown);
            EXPECT_GE(count, seen.size());
            while (seen.size() < count) {
                seen.push_back(d->getItemChildByIndex(grown, seen.size()));
            }
            if (count > 0) {
                const Item* child = d->getItemChildByIndex(grown, n * 7919 % count);
                EXPECT_EQ(child, seen[n * 7919 % count]); // nothing moves
                EXPECT_EQ(d->getItem(grown, d->getItemName(child)), child);
            }
        }
    };
    const auto overwrite = [&](size_t writer) {
        for (size_t n = 0; goesOn(end); ++n) {
            const size_t i = n % kItems;
            if (i % 2 == 0 || i / 2 % 2 == writer) {
                last[writer][i] = write(items[i], static_cast<int64_t>(2 * n + writer));
                EXPECT_TRUE(i % 2 == 0 || textOf(*d, items[i]) == last[writer][i]);
            }
        }
    };
    const auto create = [&](size_t creator) {
        for (size_t n = 0; n < 30000 && goesOn(end); ++n) {
            const std::string number = "grown/" + std::to_string(n), both = number + "/both";
            const std::string own = number + "_" + std::to_string(creator);
            d->makeInt64AtPath(root, own.c_str(), static_cast<int64_t>(n));
            created[creator].push_back(d->createItem(root, both.c_str(), kInt));
        }
    };
    const auto remove = [&] {
        const std::vector<int64_t> ints(50, 4);
        const char* const strings[] = {"a string of more than a few bytes", "b", ""};
        for (size_t n = 1; goesOn(end); ++n) {
            Item* array = d->createItem(root, "mine/array", kDict);
            d->setInt64Array(array, ints.data(), n * 7 % ints.size());
            EXPECT_EQ(d->getItemChildCount(array), n * 7 % ints.size());
            d->setStringArray(array, strings, n % 4 % 3);
            Item* copy = d->makeDictionaryAtPath(n % 3 ? root : nullptr, "merged/copy");
            d->update(copy, nullptr, root, "w", nullptr, nullptr); // beside the writers
            for (size_t i = 0; i < kItems; ++i) {
                EXPECT_PRED1(isWhole, textOf(*d, d->getItemAt(copy, i)));
            }
            d->destroyItem(copy);
            d->destroyItem(n % 2 ? array : d->getItemMutable(root, "mine"));
        }
    };
    runOnThreads({read, read, [&] { overwrite(0); }, [&] { overwrite(1); }, [&] { create(0); },
                  [&] { create(1); }, remove});

    for (size_t i = 0; i < kItems; ++i) {
        EXPECT_TRUE(textOf(*d, items[i]) == last[0][i] || textOf(*d, items[i]) == last[1][i])
            << textOf(*d, items[i]);
    }
    size_t expected = std::max(created[0].size(), created[1].size());
    for (size_t creator = 0; creator < 2; ++creator) {
        EXPECT_GT(created[creator].size(), 100u);
        expected += created[creator].size();
        for (size_t n = 0; n < created[creator].size(); ++n) {
            const std::string number = std::to_string(n), path = "grown/" + number;
            ASSERT_EQ(at(path + "/both"), created[creator][n]);
            ASSERT_EQ(textOf(*d, at(path + "_" + std::to_string(creator))), number);
        }
    }
    EXPECT_EQ(d->getItemChildCount(grown), expected);
}

TEST_F(Threads, AMergeBesideAnArrayWriteLeavesTheElementsToTheSource) {
    const std::vector<int64_t> elements(20000, 4);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (goesOn(end)) {
        Item* source = d->makeDictionaryAtPath(root, "source");
        Item* copy = d->makeDictionaryAtPath(nullptr, "copy");
        Item* value = d->makeIntAtPath(source, "v", 1);
        std::atomic<bool> isWritten{false};
        const auto merge = [&] {
            while (!isWritten) {
                d->update(copy, nullptr, source, nullptr, nullptr, nullptr);
            }
        };
        const auto write = [&] {
            d->setInt64Array(value, elements.data(), elements.size());
            isWritten = true;
        };
        runOnThreads({merge, write});
        d->destroyItem(source);
        const Item* array = d->getItem(copy, "v");
        for (size_t i = 0; i < d->getItemChildCount(array); ++i) {
            ASSERT_EQ(d->getItemParent(d->getItemChildByIndex(array, i)), array);
        }
        d->destroyItem(copy);
    }
}

TEST_F(Threads, ADictionaryThatGrowsIsNeverSeenToShrink) {
    constexpr size_t kChildren = 50;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(800);
    std::atomic<Item*> growing{root};
    const auto create = [&] {
        for (int n = 0; goesOn(end); ++n) {
            growing = d->createItem(root, std::to_string(n).c_str(), kDict);
            for (size_t i = 0; i < kChildren; ++i) {
                d->setInt64At(growing, i, 1);
            }
        }
    };
    const auto watch = [&] {
        while (goesOn(end)) {
            const Item* item = growing;
            for (size_t seen = 0, count = 0; seen < kChildren && item == growing; seen = count) {
                count = d->getItemChildCount(item);
                EXPECT_GE(count, seen);
            }
        }
    };
    runOnThreads({create, watch});
}
