// Trees of items: paths, creation, destruction, null items, release at shut-down.
#include "DictionaryFixture.h"

#include <charconv>
#include <fstream>
#include <vector>

// Only in programs built with a sanitizer, whose allocator keeps freed pages for a while.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

namespace vorn::dictionary {
namespace {

using Items = DictionaryTest;

TEST_F(Items, APathNamesOneItemOrNothing) {
    const std::string n(255, 'n');
    std::vector<std::pair<std::string, const Item*>> leaves;
    for (const std::string& name :
         {std::string("a"), std::string("ab"), std::string("A"), std::string("\xC3\xA9"),
          std::string("\xFF\x80"), n.substr(240), n.substr(239), n, n + "n"}) {
        const std::string path = "p/" + name + "/leaf";
        leaves.emplace_back(name, d->createItem(root, path.c_str(), kInt));
    }
    for (const auto& [name, leaf] : leaves) {
        const Item* inner = at("p/" + name);
        EXPECT_EQ(at("p/" + name + "/leaf"), leaf);
        EXPECT_EQ(d->getItem(inner, "leaf"), leaf);
        EXPECT_EQ(d->getItem(leaf, ""), leaf);
        EXPECT_EQ(d->getItem(leaf, nullptr), leaf);
        EXPECT_EQ(d->getItemParent(leaf), inner);
        EXPECT_EQ(d->getItemName(inner), name);
        const char* copy = d->createStringBufferFromItemName(inner);
        EXPECT_TRUE(copy == name && copy != d->getItemName(inner));
        d->destroyStringBuffer(copy);
    }
    for (const char* path : {"/", "/p", "p/", "p//a", "p/a/", "p/a//leaf", "p/b", "p/a/leaf/x", "P",
                             "leaf", "p/\xC3"}) {
        EXPECT_EQ(at(path), nullptr) << path;
    }
    const std::string before = outline(root);
    for (const char* path : {"n//x", "/n", "n/", "p/a/leaf/", "p/a/leaf//x"}) {
        EXPECT_EQ(d->createItem(root, path, kInt), nullptr) << path;
    }
    EXPECT_EQ(d->createItem(root, "p/a/leaf/x", kNone), nullptr);
    EXPECT_EQ(outline(root), before);
}

TEST_F(Items, AFreeStandingRootIsNamedByTheWholePath) {
    for (const char* name : {"<a root>", "a/b//c/", "/"}) {
        Item* item = d->makeDictionaryAtPath(nullptr, name);
        EXPECT_NE(d->makeDictionaryAtPath(nullptr, name), item); // no two calls share one
        EXPECT_STREQ(d->getItemName(item), name);
        EXPECT_EQ(d->getItemParent(item), nullptr);
        EXPECT_EQ(d->getItem(item, name), nullptr);
        d->destroyItem(item);
    }
}

TEST_F(Items, AWideDictionaryKeepsItsOrderWhileItemsLeaveFromTheMiddle) {
    const auto nameOf = [](size_t i) {
        const char* const prefixes[] = {"", "padding_", "a name of many bytes "};
        char digits[32]; // scattered, so that names do not come in sequence
        const auto end = std::to_chars(digits, digits + 32, i * 2654435761u % 0x7FFFFFFF, 36).ptr;
        return prefixes[i % 3] + std::string(digits, end);
    };
    std::vector<Item*> items(100000);
    for (size_t i = 0; i < items.size(); ++i) {
        items[i] = d->createItem(root, nameOf(i).c_str(), kInt);
    }
    for (size_t i = items.size() / 3; i < items.size(); i += 200) {
        d->destroyItem(items[i]);
        items[i] = nullptr;
    }
    size_t place = 0;
    for (size_t i = 0; i < items.size(); ++i) {
        ASSERT_EQ(at(nameOf(i)), items[i]);
        if (items[i]) {
            ASSERT_EQ(d->getItemChildByIndex(root, place++), items[i]);
        }
    }
    EXPECT_EQ(d->getItemChildCount(root), place);
    // Enough missing names for some to share a 32-bit hash with an item.
    for (size_t i = items.size(); i < 11 * items.size(); ++i) {
        ASSERT_EQ(at(nameOf(i)), nullptr);
    }
    d->deleteChildren(root);
    EXPECT_EQ(outline(root), "{}");
}

TEST_F(Items, DepthIsNotBounded) {
    std::string path = "d";
    for (int level = 1; level < 50000; ++level) {
        path += "/d";
    }
    d->makeIntAtPath(root, ("a/" + path).c_str(), 5);
    d->update(root, "b", root, "a", nullptr, nullptr);
    d->destroyItem(d->getItemMutable(root, "a"));
    EXPECT_EQ(at("a/" + path), nullptr);
    EXPECT_EQ(d->getAsInt64(at("b/" + path)), 5);
}

TEST_F(Items, ANullItemReadsAsNothingAndCannotBeChanged) {
    const auto read = [](auto answer, auto... slots) {
        return ((slots(nullptr) == answer) && ...);
    };
    const auto readAt = [](auto answer, auto... slots) {
        return ((slots(nullptr, 0) == answer) && ...);
    };
    const auto arrays = [](auto value, auto getter, auto setter) {
        const auto before = value;
        getter(nullptr, &value, 1);
        EXPECT_EQ(value, before);
        setter(nullptr, &value, 1);
    };
    EXPECT_TRUE(read(nullptr, d->getItemParent, d->getItemParentMutable, d->getItemName));
    EXPECT_TRUE(read(nullptr, d->createStringBufferFromItemName, d->getStringBuffer,
                     d->createStringBufferFromItemValue));
    EXPECT_TRUE(read(0u, d->getItemChildCount, d->getArrayLength));
    EXPECT_TRUE(read(kNone, d->getItemType, d->getPreferredArrayType));
    EXPECT_TRUE(read(0, d->getAsInt64, d->getAsFloat64, d->getAsBool, d->isAccessibleAsArray));
    EXPECT_TRUE(readAt(0, d->getAsInt64At, d->getAsFloat64At, d->getAsBoolAt));
    EXPECT_TRUE(readAt(nullptr, d->getItemChildByIndex, d->getItemChildByIndexMutable, d->getItemAt,
                       d->getItemAtMutable, d->getStringBufferAt,
                       d->createStringBufferFromItemValueAt));
    EXPECT_TRUE(!d->getItem(nullptr, "a") && !d->getItemMutable(nullptr, nullptr));
    for (ItemType type : {kBool, kInt, kFloat, kString, kDict, kNone}) {
        EXPECT_FALSE(d->isAccessibleAs(type, nullptr) || d->isAccessibleAsArrayOf(type, nullptr));
    }
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
    d->destroyItem(nullptr);
    d->destroyStringBuffer(nullptr);
    EXPECT_EQ(outline(root), "{}");
}

size_t bytesInUse() {
    if (__sanitizer_get_current_allocated_bytes) {
        return __sanitizer_get_current_allocated_bytes();
    }
    size_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * 4096;
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
        EXPECT_EQ(outline(root), "{}");
    }
    EXPECT_LT(bytesInUse(), inUse + (4 << 20)); // after ten more cycles of 5 MB each
}

} // namespace
} // namespace vorn::dictionary
