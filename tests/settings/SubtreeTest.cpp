// Merges, transactions, and operations on whole subtrees.
#include "support/Store.h"

#include <algorithm>

using namespace foreign;

VORN_OVER_BOTH_SERVICES(Merges);
VORN_OVER_BOTH_SERVICES(Transactions);
VORN_OVER_BOTH_SERVICES(Subtrees);

TEST_P(Merges, AcceptedNodesAreToldInTheOrderOfTheQuestionsAfterAllIsDone) {
    settings->setInt64("/m/kept", 1);
    settings->setInt64("/m/taken", 1);
    static Lines s_questions;
    s_questions.clear();
    Action subscribe = [&] {
        onTree("/m", "T", [&] { EXPECT_EQ(dump(), "{m:{kept:1 taken:2 made:{x:2}}}"); });
    };
    const auto decide = [](auto* dst, auto dstType, auto* src, auto srcType, void* userData) {
        s_questions.push_back(join({show(dst), show(dstType), show(src), show(srcType)}, " "));
        if (s_questions.size() == 3) { // what was asked before is told all the same
            (*static_cast<Action*>(userData))();
        }
        const std::string source = show(src);
        return source == "<source>/kept" || source == "<source>/skipped" ? eKeep : eOverwrite;
    };
    settings->update("/m", makeSource({{"made/x", 2}, {"kept", 2}, {"taken", 2}, {"skipped/x", 2}}),
                     nullptr, decide, &subscribe);
    EXPECT_EQ(join(s_questions, ", "),
              "null count <source>/made dictionary, null count <source>/made/x int, "
              "/m/kept int <source>/kept int, /m/taken int <source>/taken int, "
              "null count <source>/skipped dictionary");
    EXPECT_EQ(takeEvents(), "T /m:/m/made, T /m:/m/made/x, T /m:/m/taken");
    merge("/m", {{"taken", 2}}, nullptr);
    EXPECT_EQ(takeEvents(), "T /m:/m/taken") << "no callback accepts everything";
}

TEST_P(Merges, EventPathsStayFullHoweverTheDestinationIsWritten) {
    for (const std::string destination : {"/m/n", "m/n", "/m/n/", "/", ""}) {
        if (GetParam() && destination == "/m/n/") {
            continue; // no node can be there in our own service
        }
        const std::string path = destination.size() > 1 ? "/m/n/x/y" : "/x/y";
        onNode(path, "N");
        for (int64_t value : {1, 2}) { // created, then existing
            settings->update(destination.c_str(), makeSource({{"s/x/y", value}}), "s", overwrite,
                             nullptr);
            EXPECT_EQ(takeEvents(), "N " + path) << destination;
        }
        restart();
    }
    onNode("/top", "N");
    settings->update("/top", makeSource({{"x", 1}}), "x", overwrite, nullptr);
    EXPECT_EQ(takeEvents(), "N /top") << "the source root itself";
}

TEST_P(Merges, NodeDestroyedBeforeItsTurnIsLeftOutAndNoOther) {
    const int64_t numbers[] = {1, 2};
    const Values values = {{"a", 2}, {"b", 2}, {"c/0", 2}, {"e", 2}};
    const std::pair<Action, const char*> cases[] = {
        {[&] { settings->destroyItem("/m/c"); }, "N -/m/c/0, N /m/b, N /m/e"},
        {[&] { settings->setInt64("/m/c", 3); }, "N /m/b, N /m/e"},
        {[&] { settings->setDictionary("/m/b"); }, "N -/m/b, N /m/b, N /m/c/0, N /m/e"},
        {[&] {
             settings->initializeFromDictionary(makeSource({{"m/c", 3}}));
         },
         "N /m/b, N /m/e"},
        // Elements that an array was written over keep their turn, if they are still there.
        {[&] { settings->setInt64Array("/m/c", numbers, 0); }, "N /m/b, N /m/e"},
        {[&] { settings->setInt64Array("/m/c", numbers, 2); },
         "N /m/c/0, N /m/b, N /m/c/0, N /m/e"},
        // A merge in the callback of a merge: both have lost the node.
        {[&] {
             auto* const inner = onNode("/m/e", "I", [&] { settings->destroyItem("/m/b"); });
             merge("/m", {{"e", 3}, {"b", 3}, {"new", 3}});
             unsubscribe(inner);
         },
         "I /m/e, N -/m/b, N /m/e, N /m/c/0, N /m/e"}};
    for (const auto& [act, expected] : cases) {
        merge("/m", values);
        onNode("/m/a", "A", act);
        onNodes({"/m/b", "/m/c/0", "/m/e"});
        merge("/m", values);
        EXPECT_EQ(takeEvents(), std::string("A /m/a, ") + expected);
        restart();
    }
}

TEST_P(Merges, TenThousandValuesHalfOfThemNewAreEachToldOnce) {
    Lines expected;
    Values values;
    for (int i = 0; i < 10000; ++i) {
        const std::string path =
            "m/group" + std::to_string(i / 100) + "/" + std::to_string(i % 100);
        values.push_back({path, i});
        expected.push_back("T /m:/" + path);
        if (i % 2) {
            settings->setInt64(path.c_str(), -1);
        }
    }
    onTree("/m", "T");
    merge("/", values);
    EXPECT_EQ(takeEvents(), join(expected, ", "));
    for (const auto& [path, value] : values) {
        ASSERT_EQ(settings->getAsInt64(path.c_str()), value);
    }
}

TEST_P(Transactions, CommitAppliesAThousandWritesEveryTime) {
    V04Transaction* transaction = settings->createTransaction();
    Lines expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string path = "/t/" + std::to_string(i);
        settings->setInt64Async(transaction, path.c_str(), -1);
        settings->setInt64Async(transaction, path.c_str() + 1, i);
        expected.push_back("N " + path);
        onNode(path, "N");
    }
    EXPECT_EQ(dump() + takeEvents(), "{}");
    for (int round = 0; round < 2; ++round) {
        settings->commitTransaction(transaction);
        EXPECT_EQ(takeEvents(), join(expected, ", "));
        EXPECT_EQ(settings->getAsInt64("/t/999"), 999);
        settings->setInt64("/t/999", 0);
        takeEvents();
    }
    settings->destroyTransaction(transaction);
}

TEST_P(Subtrees, DestroyedNodesAreToldParentsFirstWhileAllStillExist) {
    const Item* root = at("");
    const Action seeAll = [&] { EXPECT_EQ(dump(), "{a:{b:{c:1} d:2}}"); };
    for (const char* path : {"/a", "a", "/", ""}) { // the root itself is not told, and stays
        settings->setInt64("/a/b/c", 1);
        settings->setInt64("/a/d", 2);
        V04SubscriptionId* ids[] = {onNode("/", "R"), onNode("/a", "N", seeAll),
                                    onTree("/a", "T", seeAll)};
        settings->destroyItem(path);
        settings->destroyItem("/a");
        EXPECT_EQ(takeEvents(), "N -/a, T /a:-/a/b, T /a:-/a/b/c, T /a:-/a/d") << path;
        EXPECT_EQ(dump() + takeLog(), "{}");
        EXPECT_EQ(at(""), root);
        std::for_each(std::begin(ids), std::end(ids), settings->unsubscribeToChangeEvents);
    }
}

TEST_P(Subtrees, RootMayHoldAValueUntilItIsMadeADictionaryAgain) {
    onNode("/", "N");
    settings->setInt64("/", 5);
    settings->destroyItem("/");
    EXPECT_EQ(settings->getAsInt64("/"), 5) << "there is nothing below a value to destroy";
    settings->setDictionary("/");
    EXPECT_EQ(takeEvents(), "N <ISettings root>, N -<ISettings root>, N <ISettings root>");
    settings->setInt64("/a", 1);
    EXPECT_EQ(dump(), "{a:1}");
}

TEST_P(Subtrees, InitialisationWorksOnceInTheLifeOfTheLibrary) {
    onNode("/x", "N");
    settings->setInt64("/own", 1);
    settings->initializeFromDictionary(nullptr);
    settings->initializeFromDictionary(makeSource({{"x", 1}, {"own", 2}}));
    EXPECT_EQ(dump() + takeEvents() + takeLog(), "{own:2 x:1}");
    for (const char* expected : {"{own:2 x:1}", "{}"}) {
        settings->initializeFromDictionary(makeSource({{"late", 1}}));
        EXPECT_EQ(takeLog(), "1 initializeFromDictionaryImpl: already initialized");
        EXPECT_EQ(dump(), expected);
        restart();
    }
}
