// Trees of items: paths, creation, destruction, null items, release at shut-down.
#include "DictionaryFixture.h"

#include <fstream>
#include <map>
#include <utility>
#include <vector>

// Only in programs built with a sanitizer, whose allocator keeps freed pages for a while.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

using namespace vorn::dictionary;

using Items = DictionaryTest;

TEST_F(Items, APathNamesOneItemOrNothing) {
    std::map<std::string, const Item*> leaves;
    const std::string n(256, 'n');
    for (const std::string& name :
         std::vector<std::string>{"a", "ab", "A", "\xC3\xA9", "\xFF\x80", n.substr(241),
                                  n.substr(240), n.substr(1), n}) {
        leaves[name] = d->createItem(root, ("p/" + name + "/leaf").c_str(), kInt);
    }
    for (const auto& [name, leaf] : leaves) {
        EXPECT_EQ(at("p/" + name + "/leaf"), leaf);
        EXPECT_EQ(d->getItem(at("p/" + name), "leaf"), leaf);
        EXPECT_EQ(d->getItemName(at("p/" + name)), name);
    }
    for (const char* path : {"/", "/p", "p/", "p//a", "p/a/", "p/a//leaf", "p/b", "p/a/leaf/x", "P",
                             "leaf", "p/\xC3"}) {
        EXPECT_EQ(at(path), nullptr) << path;
    }
    const std::string before = outline(root);
    for (const char* path : {"n//x", "/n", "n/", "p/a/leaf/", "p/a/leaf//x"}) {
        EXPECT_EQ(d->createItem(root, path, kInt), nullptr) << path;
    }
    EXPECT_EQ(d->createItem(root, "new", kNone), nullptr);
    EXPECT_EQ(d->createItem(nullptr, "new", kNone), nullptr);
    EXPECT_EQ(d->createItem(root, nullptr, kDict), root);
    EXPECT_STREQ(d->getItemName(d->createItem(nullptr, nullptr, kDict)), "");
    EXPECT_EQ(outline(root), before);
    const Item* free = d->makeDictionaryAtPath(nullptr, "a/b//c/"); // a root takes the whole path
    EXPECT_NE(d->makeDictionaryAtPath(nullptr, "a/b//c/"), free);
    EXPECT_STREQ(d->getItemName(free), "a/b//c/");
    std::string deep = "d";
    while (deep.size() < 100000) {
        deep += "/d";
    }
    d->makeIntAtPath(root, ("a/" + deep).c_str(), 5);
    d->update(root, "b", root, "a", nullptr, nullptr);
    d->destroyItem(d->getItemMutable(root, "a"));
    EXPECT_EQ(d->getAsInt64(at("b/" + deep)), 5);
}

TEST_F(Items, AWideDictionaryKeepsItsOrderWhileItemsLeaveFromTheMiddle) {
    const auto nameOf = [](size_t i) { // scattered, so that names do not come in sequence
        return (i % 3 ? "a name of many bytes " : "") + std::to_string(i * 2654435761u % INT32_MAX);
    };
    std::vector<Item*> items(100000);
    for (size_t i = 0; i < items.size(); ++i) {
        items[i] = d->createItem(root, nameOf(i).c_str(), kInt);
    }
    for (size_t i = items.size() / 3; i < items.size(); i += 200) {
        d->destroyItem(std::exchange(items[i], nullptr));
    }
    size_t place = 0;
    // Enough missing names for some to share a 32-bit hash with an item.
    for (size_t i = 0; i < 11 * items.size(); ++i) {
        const Item* item = i < items.size() ? items[i] : nullptr;
        ASSERT_EQ(at(nameOf(i)), item);
        ASSERT_TRUE(!item || d->getItemChildByIndex(root, place++) == item);
    }
    EXPECT_EQ(d->getItemChildCount(root), place);
}

TEST_F(Items, ComingAndGoingLosesNobody) {
    constexpr int kAlive = 600;
    for (int i = 0; i < 30000; ++i) {
        d->makeIntAtPath(root, std::to_string(i).c_str(), i);
        d->destroyItem(d->getItemMutable(root, std::to_string(i - kAlive).c_str()));
        for (int alive = i - kAlive + 1; i % 1000 == 999 && alive <= i; ++alive) {
            ASSERT_EQ(d->getAsInt64(at(std::to_string(alive))), alive);
        }
        ASSERT_EQ(at(std::to_string(i - kAlive)), nullptr);
    }
}

TEST_F(Items, ANullItemReadsAsNothingAndCannotBeChanged) {
    const auto read = [](auto... slots) { return (!slots(nullptr) && ...); };
    const auto readAt = [](auto... slots) { return (!slots(nullptr, 0) && ...); };
    const auto arrays = [](auto value, auto getter, auto setter) {
        getter(nullptr, &value, 1);
        setter(nullptr, &value, 1);
    };
    EXPECT_TRUE(read(d->getItemParent, d->getItemParentMutable, d->getItemName, d->getStringBuffer,
                     d->createStringBufferFromItemName, d->createStringBufferFromItemValue));
    EXPECT_TRUE(read(d->getItemChildCount, d->getArrayLength, d->getAsInt64, d->getAsFloat64,
                     d->getAsBool, d->isAccessibleAsArray));
    EXPECT_TRUE(d->getItemType(nullptr) == kNone && d->getPreferredArrayType(nullptr) == kNone);
    EXPECT_TRUE(readAt(d->getAsInt64At, d->getAsFloat64At, d->getAsBoolAt, d->getItemChildByIndex,
                       d->getItemChildByIndexMutable, d->getItemAt, d->getItemAtMutable,
                       d->getStringBufferAt, d->createStringBufferFromItemValueAt));
    EXPECT_TRUE(!d->getItem(nullptr, "a") && !d->getItemMutable(nullptr, nullptr));
    EXPECT_FALSE(d->isAccessibleAs(kDict, nullptr) || d->isAccessibleAsArrayOf(kInt, nullptr));
    arrays(int64_t{9}, d->getAsInt64Array, d->setInt64Array);
    arrays(9, d->getAsIntArray, d->setIntArray);
    arrays(9.0, d->getAsFloat64Array, d->setFloat64Array);
    arrays(9.0f, d->getAsFloatArray, d->setFloatArray);
    arrays(true, d->getAsBoolArray, d->setBoolArray);
    arrays("kept", d->getStringBufferArray, d->setStringArray);
    arrays(at(""), d->getItemArray, [](auto...) {});
    d->setInt64(nullptr, 1), d->setInt64At(nullptr, 0, 1);
    d->setFloat64(nullptr, 1), d->setFloat64At(nullptr, 0, 1);
    d->setBool(nullptr, true), d->setBoolAt(nullptr, 0, true);
    d->setString(nullptr, "x"), d->setStringAt(nullptr, 0, "x");
    d->update(nullptr, "a", root, nullptr, nullptr, nullptr);
    d->update(root, "a", nullptr, nullptr, nullptr, nullptr);
    d->destroyItem(nullptr), d->destroyStringBuffer(nullptr);
    EXPECT_EQ(outline(root), "{}");
}

TEST_F(Items, DeepPathsAndLargeTreesAreFoundLikeOthers) {
    std::string path;
    for (int level = 0; level < 40; ++level) {
        path += "a dictionary " + std::to_string(level) + "/";
    }
    const std::string top = "a dictionary 0/a dictionary 1", value = path + "value";
    Item* deep = d->createItem(root, value.c_str(), kInt);
    EXPECT_EQ(at(value), deep);
    EXPECT_EQ(d->getItem(at(top), value.c_str() + top.size() + 1), deep);
    EXPECT_EQ(at(path + "valuf"), nullptr);
    EXPECT_EQ(at("b" + value.substr(1)), nullptr);
    Item* copy = d->makeDictionaryAtPath(nullptr, "copy");
    d->update(copy, "on/the/way", root, nullptr, nullptr, nullptr);
    EXPECT_NE(d->getItem(copy, ("on/the/way/" + value).c_str()), nullptr);

    constexpr size_t kWide = 500000; // its items and their table lie in the largest blocks
    Item* wide = d->makeDictionaryAtPath(root, "wide");
    std::vector<const Item*> items;
    for (size_t i = 0; i < kWide; ++i) {
        items.push_back(d->createItem(wide, ("item " + std::to_string(i)).c_str(), kInt));
    }
    for (size_t i = 0; i < kWide; i += 97) {
        ASSERT_EQ(at("wide/item " + std::to_string(i)), items[i]);
    }
    EXPECT_EQ(at("wide/item " + std::to_string(kWide)), nullptr);
    d->destroyItem(wide);
    EXPECT_EQ(at("wide/item 7"), nullptr);
}

static size_t bytesInUse() {
    size_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    const auto allocated = &__sanitizer_get_current_allocated_bytes;
    return allocated ? allocated() : resident * 4096;
}

TEST_F(Items, ShutdownReleasesEverythingAndAStartBeginsAfresh) {
    const std::string longText(500, 't');
    size_t inUse = 0;
    for (int cycle = 0; cycle < 12; ++cycle) {
        for (int i = 0; i < 10000; ++i) { // nobody destroys the free-standing ones
            Item* parent = i % 10 ? root : d->makeDictionaryAtPath(nullptr, "free");
            d->makeStringAtPath(parent, ("a/" + std::to_string(i)).c_str(), longText.c_str());
        }
        shutdown();
        inUse = cycle == 1 ? bytesInUse() : inUse;
        startup();
    }
    EXPECT_LT(bytesInUse(), inUse + (4 << 20)); // after ten more cycles of 5 MB each
}
