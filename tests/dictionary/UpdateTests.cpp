// Merging: which questions are asked in which order, and what the answers do.
#include "DictionaryFixture.h"

using namespace vorn::dictionary;

// The questions as "name:destination<source", types by initial letter, "-" for none.
struct Questions {
    const IDictionary* d;
    std::string log;

    // Keeps what the name "keep" is asked for.
    static UpdateAction
    onItem(const Item* dst, ItemType dstType, const Item* src, ItemType srcType, void* userData) {
        Questions& self = *static_cast<Questions*>(userData);
        EXPECT_EQ(self.d->getItemType(dst), dstType);
        const std::string name = self.d->getItemName(src);
        self.log += name + ":" + "bifsd-"[static_cast<size_t>(dstType)] + "<" +
                    "bifsd-"[static_cast<size_t>(srcType)] + " ";
        return name == "keep" ? UpdateAction::eKeep : UpdateAction::eOverwrite;
    }
};

TEST_F(DictionaryTest, AMergeAsksInSourceOrderAndWithinOneTreeTakesTheSourceAsItWas) {
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
        Questions questions{d, ""};
        d->update(root, row.dstPath, root, row.srcPath, &Questions::onItem, &questions);
        EXPECT_EQ(questions.log, row.questions);
        EXPECT_EQ(outline(root), row.result);
    }
    d->update(root, "a", root, "a/b", kUpdateItemKeepOriginal, nullptr);
    EXPECT_EQ(outline(root), "{a:{x:1 b:{x:2 keep:3} keep:3}}");
}

// What a merge remembers of the one before never shows: whatever happens in between, or while it
// asks, it asks about what is there.
TEST_F(DictionaryTest, AMergeThatComesAgainAsksAboutWhatIsThereThen) {
    struct Interrupted : Questions {
        Item *root, *source;
        std::string name; // the question about it is answered with a change of both trees

        static UpdateAction onItem(
            const Item* dst, ItemType dstType, const Item* src, ItemType srcType, void* userData) {
            Interrupted& self = *static_cast<Interrupted*>(userData);
            if (self.d->getItemName(src) == self.name) {
                self.d->makeIntAtPath(self.root, "elsewhere", 1);
                self.d->makeIntAtPath(self.source, "c/late", 5);
            }
            return Questions::onItem(dst, dstType, src, srcType, userData);
        }
    };
    Item* source = d->makeDictionaryAtPath(nullptr, "source");
    const auto merge = [&](const char* interruptedAt, const char* dstPath = "t") {
        Interrupted questions{{d, ""}, root, source, interruptedAt};
        d->update(root, dstPath, source, nullptr, &Interrupted::onItem, &questions);
        return questions.log;
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
