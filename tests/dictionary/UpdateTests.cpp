// Merging: which questions are asked in which order, and what the answers do.
#include "DictionaryFixture.h"

namespace vorn::dictionary {
namespace {

class Updates : public DictionaryTest {
protected:
    void SetUp() override {
        DictionaryTest::SetUp();
        src = d->makeDictionaryAtPath(nullptr, "src");
    }
    // Merges into the root and returns the questions as "name:destination<source", types by
    // initial letter, "-" for none. Items of the name "keep" are answered eKeep.
    std::string merge(const char* dstPath, const Item* from, const char* srcPath) {
        m_questions.clear();
        d->update(root, dstPath, from, srcPath, &Updates::onItem, this);
        return m_questions;
    }

    Item* src = nullptr;

private:
    static UpdateAction onItem(const Item* dstItem,
                               ItemType dstType,
                               const Item* srcItem,
                               ItemType srcType,
                               void* userData) {
        Updates& self = *static_cast<Updates*>(userData);
        EXPECT_EQ(self.d->getItemType(dstItem), dstType);
        const std::string name = self.d->getItemName(srcItem);
        self.m_questions += name + ":" + "bifsd-"[static_cast<size_t>(dstType)] + "<" +
                            "bifsd-"[static_cast<size_t>(srcType)] + " ";
        return name == "keep" ? UpdateAction::eKeep : UpdateAction::eOverwrite;
    }

    std::string m_questions;
};

TEST_F(Updates, AskParentsBeforeChildrenAndEnterWhatBothSidesHaveUnasked) {
    d->makeIntAtPath(src, "both/z", 1);
    d->makeStringAtPath(src, "both/a", "x");
    d->makeIntAtPath(src, "overValue/c", 2);
    d->makeIntAtPath(src, "keep/c", 3);
    d->makeIntAtPath(src, "new/inner/c", 4);
    d->makeBoolAtPath(src, "overDict", true);
    d->makeDictionaryAtPath(src, "empty");
    d->makeIntAtPath(root, "overDict/gone", 0);
    d->makeFloatAtPath(root, "both/a", 2.5);
    d->makeIntAtPath(root, "both/own", 9);
    d->makeIntAtPath(root, "overValue", 0);
    EXPECT_EQ(merge("", src, nullptr),
              "z:-<i a:f<s overValue:i<d c:-<i keep:-<d new:-<d inner:-<d c:-<i overDict:d<b "
              "empty:-<d ");
    EXPECT_EQ(outline(root), "{overDict:true both:{a:'x' own:9 z:1} overValue:{c:2} "
                             "new:{inner:{c:4}} empty:{}}");
    d->makeIntAtPath(src, "both/own", 5);
    d->makeIntAtPath(src, "both/late", 6);
    d->update(root, "both", src, "both", kUpdateItemKeepOriginal, nullptr);
    EXPECT_EQ(outline(at("both")), "{a:'x' own:9 z:1 late:6}");
    d->update(root, "both", src, "both", nullptr, nullptr);
    EXPECT_EQ(outline(at("both")), "{a:'x' own:5 z:1 late:6}");
}

TEST_F(Updates, ChangeNothingWithoutASourceAndCreateTheDestinationWithTheFirstAcceptedItem) {
    d->makeIntAtPath(src, "value", 1);
    d->makeIntAtPath(src, "dict/keep", 2);
    d->makeIntAtPath(src, "keep/c", 2);
    EXPECT_EQ(merge("x", src, "no/such"), "");
    EXPECT_EQ(merge("x", src, "dict/"), "");
    EXPECT_EQ(merge("x/y", src, "dict/keep"), "keep:-<i ");
    EXPECT_EQ(merge("x/y", src, "keep"), "keep:-<d ");
    EXPECT_EQ(outline(root), "{}");
    EXPECT_EQ(merge("x/y", src, "value"), "value:-<i ");
    EXPECT_EQ(merge("x/y/z", src, "dict"), "dict:-<d keep:-<i "); // y gives way
    EXPECT_EQ(outline(root), "{x:{y:{z:{}}}}");
    EXPECT_EQ(merge(nullptr, src, "value"), "value:d<i ");
    EXPECT_EQ(outline(root), "1");
}

TEST_F(Updates, WithinOneTreeTakeTheSourceAsItWas) {
    struct Row {
        const char *dstPath, *srcPath, *questions, *result;
    };
    constexpr Row kRows[] = {
        {"a", "a", "x:i<i x:i<i c:i<i ", "{a:{x:1 b:{x:2 c:3}}}"},
        {"a", "a/b", "x:i<i c:-<i ", "{a:{x:2 b:{x:2 c:3} c:3}}"},
        {"a/b", "a", "x:i<i b:-<d x:-<i c:-<i ", "{a:{x:1 b:{x:1 c:3 b:{x:2 c:3}}}}"},
        {"a/x", "a", "a:i<d x:-<i b:-<d x:-<i c:-<i ", "{a:{x:{x:1 b:{x:2 c:3}} b:{x:2 c:3}}}"},
        {"a", "a/b/c", "c:d<i ", "{a:3}"}, // the source goes with its parent
    };
    for (const Row& row : kRows) {
        d->deleteChildren(root);
        d->makeIntAtPath(root, "a/x", 1);
        d->makeIntAtPath(root, "a/b/x", 2);
        d->makeIntAtPath(root, "a/b/c", 3);
        EXPECT_EQ(merge(row.dstPath, root, row.srcPath), row.questions);
        EXPECT_EQ(outline(root), row.result);
    }
}

} // namespace
} // namespace vorn::dictionary
