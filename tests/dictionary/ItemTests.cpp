// Trees of items: paths, creation, destruction, merging, release at shut-down.
#include "DictionaryFixture.h"

#include <functional>
#include <malloc.h>

using namespace vorn::dictionary;

using Items = DictionaryTest;

TEST_F(Items, APathNamesOneItemOrNothing) {
    std::map<std::string, const Item*> leaves;
    for (const size_t length : {1, 2, 7, 8, 15, 16, 255, 256}) {
        const std::string name(length, 'n');
        leaves[name] = d->createItem(root, ("p/" + name + "/leaf").c_str(), kInt);
    }
    for (const auto& [name, leaf] : leaves) {
        EXPECT_EQ(at("p/" + name + "/leaf"), leaf);
        EXPECT_EQ(d->getItemName(d->getItemParent(leaf)), name);
    }
    for (const char* path : {"/", "/p", "p/", "p//n", "p/n/", "p/N", "p/n/leaf/x", "P", "p/nnn"}) {
        EXPECT_EQ(at(path), nullptr) << path;
    }
    const Item* free = d->makeDictionaryAtPath(nullptr, "a/b//c/"); // a root takes the whole path
    EXPECT_STREQ(d->getItemName(free), "a/b//c/");
}

TEST_F(Items, AWideDictionaryKeepsItsOrderWhileItemsLeaveFromTheMiddle) {
    const auto nameOf = [](size_t i) { // scattered, so that names do not come in sequence
        return (i % 3 ? "a name of many bytes " : "") + std::to_string(i * 2654435761u % INT32_MAX);
    };
    Item* wide = d->makeDictionaryAtPath(root, "wide");
    std::vector<Item*> items(500000); // they and their table lie in the largest blocks
    for (size_t i = 0; i < items.size(); ++i) {
        items[i] = d->createItem(wide, nameOf(i).c_str(), kInt);
    }
    for (size_t i = items.size() / 3; i < items.size(); i += 1000) {
        d->destroyItem(std::exchange(items[i], nullptr));
    }
    size_t place = 0;
    // Enough missing names for some to share a 32-bit hash with an item.
    for (size_t i = 0; i < 3 * items.size(); ++i) {
        const Item* item = i < items.size() ? items[i] : nullptr;
        ASSERT_EQ(at("wide/" + nameOf(i)), item);
        ASSERT_TRUE(!item || d->getItemChildByIndex(wide, place++) == item);
    }
    EXPECT_EQ(d->getItemChildCount(wide), place);
    d->destroyItem(wide);
    EXPECT_EQ(at("wide/" + nameOf(0)), nullptr);
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

TEST_F(Items, DeepPathsAreFoundMergedAndDestroyedLikeOthers) {
    std::string path = "a";
    for (int level = 0; level < 40; ++level) {
        path += "/a dictionary " + std::to_string(level);
    }
    const Item* deep = d->createItem(root, path.c_str(), kInt);
    EXPECT_EQ(at(path), deep);
    EXPECT_EQ(d->getItem(at("a/a dictionary 0"), path.substr(17).c_str()), deep);
    EXPECT_EQ(at("b" + path.substr(1)), nullptr);
    while (path.size() < 100000) {
        path += "/d";
    }
    d->createItem(root, path.c_str(), kInt);
    d->update(root, "b/on/the/way", root, "a", nullptr, nullptr);
    d->destroyItem(d->getItemMutable(root, "a"));
    EXPECT_NE(at("b/on/the/way" + path.substr(1)), nullptr);
}

class Merges : public DictionaryTest {
protected:
    // Overwrites but what the name "keep" is asked for. The questions, as
    // "name:destination<source", types by initial letter, "-" for none.
    std::string merge(const char* dstPath, const Item* source, const char* srcPath = nullptr) {
        questions.clear();
        const auto onItem = [](auto dst, auto dstType, auto src, auto srcType, void* test) {
            Merges& self = *static_cast<Merges*>(test);
            EXPECT_EQ(self.d->getItemType(dst), dstType);
            const std::string name = self.d->getItemName(src);
            self.questions += name + ":" + "bifsd-"[static_cast<size_t>(dstType)] + "<" +
                              "bifsd-"[static_cast<size_t>(srcType)] + " ";
            self.onQuestion(name);
            return name == "keep" ? UpdateAction::eKeep : UpdateAction::eOverwrite;
        };
        d->update(root, dstPath, source, srcPath, onItem, this);
        return questions;
    }

    Item* source = d->makeDictionaryAtPath(nullptr, "source");
    std::string questions;
    std::function<void(const std::string& name)> onQuestion = [](auto&) {};
};

TEST_F(Merges, AskInSourceOrderAndWithinOneTreeTakeTheSourceAsItWas) {
    d->makeIntAtPath(root, "a/x", 1);
    d->makeIntAtPath(root, "a/b/x", 2);
    d->makeIntAtPath(root, "a/b/keep", 3);
    EXPECT_EQ(merge("a/b", root, "a"), "x:i<i b:-<d x:-<i keep:-<i ");
    EXPECT_EQ(outlineOf(*d, root), "{a:{x:1 b:{x:1 keep:3 b:{x:2}}}}");
    EXPECT_EQ(merge("a", root, "a/b/x"), "x:d<i ");
    EXPECT_EQ(outlineOf(*d, root), "{a:1}") << "the source went with its parent";
    d->makeIntAtPath(source, "xa", 2); // a name that ends like the other
    EXPECT_EQ(merge(nullptr, source), "xa:-<i ");
}

// What a merge remembers of the one before never shows: whatever happens in between, or while it
// asks, it asks about what is there.
TEST_F(Merges, ThatComeAgainAskAboutWhatIsThereThen) {
    d->makeIntAtPath(source, "a/x", 1);
    d->makeIntAtPath(source, "keep", 2);
    d->makeStringAtPath(source, "c/y", "");
    EXPECT_EQ(merge("t", source), "source:-<d a:-<d x:-<i keep:-<i c:-<d y:-<s ");
    d->makeIntAtPath(root, "t/keep", 0);
    std::string interrupted; // the name asked about while both trees change
    onQuestion = [&](const std::string& name) {
        if (name == interrupted) {
            d->makeIntAtPath(root, "elsewhere", 1);
            d->makeIntAtPath(source, "c/late", 5);
        }
    };
    for (const char* name : {"", "x", "keep", "y"}) {
        d->destroyItem(d->getItemMutable(source, "c/late"));
        d->destroyItem(d->getItemMutable(root, "t/c/late"));
        interrupted.clear();
        EXPECT_EQ(merge("t", source), "x:i<i keep:i<i y:s<s ");
        interrupted = name;
        d->setString(d->getItemMutable(source, "c/y"), name);
        EXPECT_EQ(merge("t", source),
                  std::string("x:i<i keep:i<i y:s<s ") + (*name ? "late:-<i " : ""));
        EXPECT_EQ(outlineOf(*d, at("t/c")), "{y:'" + interrupted + (*name ? "' late:5}" : "'}"));
    }
    interrupted.clear();
    d->makeFloat64AtPath(root, "t/c", 0.5);
    EXPECT_EQ(merge("t", source), "x:i<i keep:i<i c:f<d y:-<s late:-<i ");
    EXPECT_EQ(merge("t", source), "x:i<i keep:i<i y:s<s late:i<i ");
    EXPECT_EQ(outlineOf(*d, at("t")), "{a:{x:1} c:{y:'y' late:5} keep:0}");
    EXPECT_EQ(merge("u", source), "source:-<d a:-<d x:-<i keep:-<i c:-<d y:-<s late:-<i ");
}

TEST_F(Merges, ReplaceWhatTheQuestionAboutAValueMade) {
    d->makeIntAtPath(source, "v", 1);
    d->makeIntAtPath(root, "v", 0);
    onQuestion = [this](auto&) { d->makeIntAtPath(root, "v/child", 2); };
    merge(nullptr, source);
    EXPECT_EQ(outlineOf(*d, root), "{v:1}");
    EXPECT_EQ(at("v/child"), nullptr);
}

TEST_F(Items, ShutdownReleasesEverythingAndAStartBeginsAfresh) {
    const auto bytesInUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const std::string longText(500, 't');
    size_t inUse = 0;
    for (int cycle = 0; cycle < 3; ++cycle) {
        for (int i = 0; i < 10000; ++i) { // nobody destroys the free-standing ones
            Item* parent = i % 10 ? root : d->makeDictionaryAtPath(nullptr, "free");
            d->makeStringAtPath(parent, ("a/" + std::to_string(i)).c_str(), longText.c_str());
        }
        m_plugin.shutdown();
        inUse = cycle == 0 ? bytesInUse() : inUse;
        EXPECT_LT(bytesInUse(), inUse + 16384); // the allocator has lists of its own
        startup();
    }
}
