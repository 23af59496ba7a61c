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
