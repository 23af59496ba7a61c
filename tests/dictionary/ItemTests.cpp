// Trees of items: paths, creation, destruction, merging, release at shut-down.
#include "DictionaryFixture.h"

// Only in programs built with a sanitizer, whose allocator keeps freed pages for a while.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

using namespace vorn::dictionary;

using Items = DictionaryTest;

TEST_F(Items, APathNamesOneItemOrNothing) {
    std::map<std::string, const Item*> leaves;
    const std::string n(256, 'n');
    for (const std::string& name :
         {std::string("a"), std::string("ab"), std::string("A"), std::string("\xFF\x80"),
          n.substr(241), n.substr(240), n.substr(1), n}) {
        leaves[name] = d->createItem(root, ("p/" + name + "/leaf").c_str(), kInt);
    }
    for (const auto& [name, leaf] : leaves) {
        EXPECT_EQ(at("p/" + name + "/leaf"), leaf);
        EXPECT_EQ(d->getItem(at("p/" + name), "leaf"), leaf);
        EXPECT_EQ(d->getItemName(at("p/" + name)), name);
    }
    for (const char* path : {"/", "/p", "p/", "p//a", "p/a/", "p/b", "p/a/leaf/x", "P", "p/\xFF"}) {
        EXPECT_EQ(at(path), nullptr) << path;
    }
    EXPECT_EQ(d->createItem(root, "n//x", kInt), nullptr);
    EXPECT_EQ(d->getItemChildCount(root), 1u);
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

// Overwrites but what the name "keep" is asked for. The questions go to the log as
// "name:destination<source", types by initial letter, "-" for none.
static UpdateAction
ask(const Item* dst, ItemType dstType, const Item* src, ItemType srcType, void* userData) {
    auto& [d, log] = *static_cast<std::pair<const IDictionary*, std::string>*>(userData);
    EXPECT_EQ(d->getItemType(dst), dstType);
    const std::string name = d->getItemName(src);
    log += name + ":" + "bifsd-"[static_cast<size_t>(dstType)] + "<" +
           "bifsd-"[static_cast<size_t>(srcType)] + " ";
    return name == "keep" ? UpdateAction::eKeep : UpdateAction::eOverwrite;
}

TEST_F(Items, AMergeAsksInSourceOrderAndWithinOneTreeTakesTheSourceAsItWas) {
    const struct {
        const char *dstPath, *srcPath, *questions, *result;
    } rows[] = {
        {"a", "a/b", "x:i<i keep:-<i ", "{a:{x:2 b:{x:2 keep:3}}}"},
        {"a/b", "a", "x:i<i b:-<d x:-<i keep:-<i ", "{a:{x:1 b:{x:1 keep:3 b:{x:2}}}}"},
        {"a/x", "a", "a:i<d x:-<i b:-<d x:-<i keep:-<i ", "{a:{x:{x:1 b:{x:2}} b:{x:2 keep:3}}}"},
        {"a", "a/b/x", "x:d<i ", "{a:2}"}, // the source goes with its parent
        {"n", "a/b/keep", "keep:-<i ", "{a:{x:1 b:{x:2 keep:3}}}"},
        {"n", "a/b/", "", "{a:{x:1 b:{x:2 keep:3}}}"},
        {"n//m", "a/b/x", "x:-<i ", "{a:{x:1 b:{x:2 keep:3}}}"}, // no item can be there
    };
    for (const auto& row : rows) {
        d->deleteChildren(root);
        d->makeIntAtPath(root, "a/x", 1);
        d->makeIntAtPath(root, "a/b/x", 2);
        d->makeIntAtPath(root, "a/b/keep", 3);
        std::pair<const IDictionary*, std::string> questions{d, ""};
        d->update(root, row.dstPath, root, row.srcPath, ask, &questions);
        EXPECT_EQ(questions.second, row.questions);
        EXPECT_EQ(outline(root), row.result);
    }
}

// What a merge remembers of the one before never shows: whatever happens in between, or while it
// asks, it asks about what is there.
TEST_F(Items, AMergeThatComesAgainAsksAboutWhatIsThereThen) {
    struct Interrupted {
        std::pair<const IDictionary*, std::string> questions;
        Item *root, *source;
        std::string name; // the question about it is answered with a change of both trees
    };
    Item* source = d->makeDictionaryAtPath(nullptr, "source");
    const auto merge = [&](const char* interruptedAt, const char* dstPath = "t") {
        Interrupted data{{d, ""}, root, source, interruptedAt};
        const auto onItem = [](auto dst, auto dstType, auto src, auto srcType, void* userData) {
            auto& [questions, root, source, name] = *static_cast<Interrupted*>(userData);
            if (questions.first->getItemName(src) == name) {
                questions.first->makeIntAtPath(root, "elsewhere", 1);
                questions.first->makeIntAtPath(source, "c/late", 5);
            }
            return ask(dst, dstType, src, srcType, &questions);
        };
        d->update(root, dstPath, source, nullptr, onItem, &data);
        return data.questions.second;
    };
    d->makeIntAtPath(source, "a/x", 1);
    d->makeIntAtPath(source, "keep", 2);
    d->makeStringAtPath(source, "c/y", "");
    EXPECT_EQ(merge(""), "source:-<d a:-<d x:-<i keep:-<i c:-<d y:-<s ");
    d->makeIntAtPath(root, "t/keep", 0);
    for (const char* name : {"", "x", "keep", "y"}) {
        d->destroyItem(d->getItemMutable(source, "c/late"));
        d->destroyItem(d->getItemMutable(root, "t/c/late"));
        EXPECT_EQ(merge(""), "x:i<i keep:i<i y:s<s ");
        d->setString(d->getItemMutable(source, "c/y"), name);
        EXPECT_EQ(merge(name), std::string("x:i<i keep:i<i y:s<s ") + (*name ? "late:-<i " : ""));
        EXPECT_EQ(outline(at("t/c")), "{y:'" + std::string(name) + (*name ? "' late:5}" : "'}"));
    }
    d->makeFloat64AtPath(root, "t/c", 0.5);
    EXPECT_EQ(merge(""), "x:i<i keep:i<i c:f<d y:-<s late:-<i ");
    EXPECT_EQ(merge(""), "x:i<i keep:i<i y:s<s late:i<i ");
    EXPECT_EQ(outline(at("t")), "{a:{x:1} c:{y:'y' late:5} keep:0}");
    EXPECT_EQ(merge("", "u"), "source:-<d a:-<d x:-<i keep:-<i c:-<d y:-<s late:-<i ");
    d->destroyItem(source);
}

TEST_F(Items, AMergedValueReplacesWhatItsOwnQuestionMade) {
    Item* source = d->makeDictionaryAtPath(nullptr, "source");
    d->makeIntAtPath(source, "v", 1);
    d->makeIntAtPath(root, "v", 0);
    std::pair<const IDictionary*, Item*> data{d, root};
    const auto onItem = [](auto, auto, auto, auto, void* userData) {
        const auto& [d, root] = *static_cast<std::pair<const IDictionary*, Item*>*>(userData);
        d->makeIntAtPath(root, "v/child", 2);
        return UpdateAction::eOverwrite;
    };
    d->update(root, nullptr, source, nullptr, onItem, &data);
    EXPECT_EQ(outline(root), "{v:1}");
    EXPECT_EQ(at("v/child"), nullptr);
    d->destroyItem(source);
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
        m_plugin.shutdown();
        inUse = cycle == 1 ? bytesInUse() : inUse;
        startup();
    }
    EXPECT_LT(bytesInUse(), inUse + (4 << 20)); // after ten more cycles of 5 MB each
}
