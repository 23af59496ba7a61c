// Merges, transactions, and operations on whole subtrees.
#include "support/Store.h"

using namespace foreign;

class Merges : public AnyStore {
protected:
    void merge(const char* path, const Values& values, OnUpdate onUpdate = overwrite) {
        settings->update(path, makeSource(values), nullptr, onUpdate, nullptr);
    }
};
INSTANTIATE_TEST_SUITE_P(Service, Merges, testing::Bool(), nameService);
VORN_OVER_BOTH_SERVICES(Transactions);
VORN_OVER_BOTH_SERVICES(Subtrees);

TEST_P(Merges, AcceptedNodesAreToldInTheOrderOfTheQuestionsAfterAllIsDone) {
    settings->setInt64("/m/z", 1);
    const auto seeAll = [&] { EXPECT_EQ(dump(at("/m")), "{z: 2, y: {x: 3}, a: 4}"); };
    onTree("/m", "T", seeAll);
    onNode("/m/y/x", "N", seeAll);
    merge("/m", {{"z", 2}, {"y/x", 3}, {"a", 4}});
    EXPECT_EQ(takeEvents(), "T /m:/m/z, T /m:/m/y, N /m/y/x, T /m:/m/y/x, T /m:/m/a");
    merge("/m", {{"z", 5}}, [](auto...) { return eKeep; });
    EXPECT_EQ(takeEvents(), "");
    merge("/m", {{"z", 2}}, nullptr);
    EXPECT_EQ(takeEvents(), "T /m:/m/z") << "no callback accepts everything";
}

TEST_P(Merges, EventPathsStayFullHoweverTheDestinationIsWritten) {
    for (const std::string destination : {"/m/n", "m/n", "/", "", "/m/n/"}) {
        if (GetParam() && destination == "/m/n/") {
            continue; // no node can be there in our own service
        }
        const std::string path = (destination.size() > 1 ? "/m/n" : "") + std::string("/x/y");
        onNode(path, "N");
        for (int64_t value : {1, 2}) { // created, then existing
            settings->update(destination.c_str(), makeSource({{"s/x/y", value}}), "s", overwrite,
                             nullptr);
            EXPECT_EQ(takeEvents(), "N " + path) << destination;
            EXPECT_EQ(settings->getAsInt64(path.c_str()), value);
        }
        restart();
    }
    onNode("/top", "N");
    settings->update("/top", makeSource({{"x", 1}}), "x", overwrite, nullptr);
    EXPECT_EQ(takeEvents(), "N /top") << "the source root itself";
}

TEST_P(Merges, CallersCallbackDecidesAndMaySubscribe) {
    settings->setInt64("/m/kept", 1);
    settings->setInt64("/m/taken", 1);
    static Lines s_questions;
    Action subscribe = [&] { onTree("/m", "T"); };
    const auto decide = [](auto* dst, auto dstType, auto* src, auto srcType, void* userData) {
        const IDictionary& dictionary = *g_host.dictionary;
        const std::string source = describe(dictionary, src);
        s_questions.push_back(describe(dictionary, dst) + text(+dstType) + source + text(+srcType));
        if (s_questions.size() == 3) { // what was asked before is told all the same
            (*static_cast<Action*>(userData))();
        }
        return source == "<source>/kept" || source == "<source>/skipped" ? eKeep : eOverwrite;
    };
    settings->update("/m", makeSource({{"made/x", 2}, {"kept", 2}, {"taken", 2}, {"skipped/x", 2}}),
                     nullptr, decide, &subscribe);
    EXPECT_EQ(join(s_questions, ", "),
              "null5<source>/made4, null5<source>/made/x1, /m/kept1<source>/kept1, "
              "/m/taken1<source>/taken1, null5<source>/skipped4");
    EXPECT_EQ(takeEvents(), "T /m:/m/made, T /m:/m/made/x, T /m:/m/taken");
    EXPECT_EQ(dump(), "{m: {kept: 1, taken: 2, made: {x: 2}}}");
}

TEST_P(Merges, NodeDestroyedBeforeItsTurnIsLeftOutAndNoOther) {
    const int64_t numbers[] = {1, 2};
    const Values values = {{"a", 2}, {"b", 2}, {"c/0", 2}, {"e", 2}};
    const std::pair<Action, const char*> cases[] = {
        {[&] { settings->destroyItem("/m/b"); }, "A /m/a, N -/m/b, N /m/c/0, N /m/e"},
        {[&] { settings->destroyItem("/m/c"); }, "A /m/a, N -/m/c/0, N /m/b, N /m/e"},
        {[&] { settings->setInt64("/m/c", 3); }, "A /m/a, N /m/b, N /m/e"},
        {[&] { settings->setDictionary("/m/b"); }, "A /m/a, N -/m/b, N /m/b, N /m/c/0, N /m/e"},
        // What takes the place of a destroyed node has told its own event.
        {[&] { settings->destroyItem("/m/b"), settings->setInt64("/m/b", 3); },
         "A /m/a, N -/m/b, N /m/b, N /m/c/0, N /m/e"},
        {[&] {
             settings->initializeFromDictionary(makeSource({{"m/c", 3}}));
         },
         "A /m/a, N /m/b, N /m/e"},
        // Elements that an array was written over keep their turn.
        {[&] { settings->setInt64Array("/m/c", numbers, 2); },
         "A /m/a, N /m/c/0, N /m/b, N /m/c/0, N /m/e"},
        {[&] { settings->setInt64Array("/n", numbers, 1); }, "A /m/a, N /m/b, N /m/c/0, N /m/e"},
        {[&] { settings->setInt64Array("/value", numbers, 2); },
         "A /m/a, N /m/b, N /m/c/0, N /m/e"},
        // A merge in the callback of a merge: both have lost the node.
        {[&] {
             SubscriptionId* inner = onNode("/m/e", "I", [&] { settings->destroyItem("/m/b"); });
             merge("/m", {{"e", 3}, {"b", 3}, {"new", 3}});
             unsubscribe(inner);
         },
         "A /m/a, I /m/e, N -/m/b, N /m/e, N /m/c/0, N /m/e"}};
    for (const auto& [act, expected] : cases) {
        settings->setInt64Array("/n", numbers, 2);
        settings->setInt64("/value", 1);
        merge("/m", values);
        onNode("/m/a", "A", act);
        onNodes({"/m/b", "/m/c/0", "/m/e"});
        merge("/m", values);
        EXPECT_EQ(takeEvents(), expected);
        restart();
    }
}

TEST_P(Merges, CreatedNodeThatIsGoneByItsTurnIsToldAsNull) {
    settings->setDictionary("/m");
    onNode("/m/a", "A", [&] { settings->destroyItem("/m/b"); });
    onNode("/m/b", "B");
    onTree("/m", "T");
    merge("/m", {{"a", 1}, {"b", 1}});
    EXPECT_EQ(takeEvents(), "A /m/a, B -/m/b, T /m:-/m/b, T /m:/m/a, B null, T null:null");
}

TEST_P(Merges, TenThousandValuesHalfOfThemNewAreEachToldOnce) {
    std::deque<std::string> paths;
    std::string expected;
    Values values;
    for (int i = 0; i < 10000; ++i) {
        const std::string place = std::to_string(i / 100) + "/" + std::to_string(i % 100);
        const std::string& path = paths.emplace_back("/m/group" + place);
        expected += (i ? ", T /m:" : "T /m:") + path;
        values.push_back({path.c_str() + 1, i});
        if (i % 2) {
            settings->setInt64(path.c_str(), -1);
        }
    }
    onTree("/m", "T");
    merge("/", values);
    EXPECT_EQ(takeEvents(), expected);
    for (const auto& [path, value] : values) {
        ASSERT_EQ(settings->getAsInt64(path), value);
    }
}

TEST_P(Transactions, CommitAppliesAThousandWritesEveryTime) {
    Transaction* transaction = settings->createTransaction();
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        const std::string path = "/t/" + std::to_string(i);
        settings->setInt64Async(transaction, path.c_str(), -1);
        settings->setInt64Async(transaction, path.c_str() + 1, i);
        expected += ", N " + path;
        onNode(path, "N");
    }
    EXPECT_EQ(dump() + takeEvents(), "{}");
    for (int round = 0; round < 2; ++round) {
        settings->commitTransaction(transaction);
        EXPECT_EQ(", " + takeEvents(), expected);
        EXPECT_EQ(settings->getAsInt64("/t/999"), 999);
        settings->setInt64("/t/999", 0);
        takeEvents();
    }
    settings->destroyTransaction(transaction);
    EXPECT_EQ(settings->getAsInt64("/t/999"), 0);
}

TEST_P(Transactions, AreApartFromEachOtherAndReuseRecords) {
    std::vector<Transaction*> open;
    for (int i = 0; i < 250; ++i) {
        open.push_back(settings->createTransaction());
        settings->setInt64Async(open[i], "/t", i);
    }
    settings->destroyTransaction(open[3]);
    EXPECT_EQ(settings->createTransaction(), open[3]);
    settings->commitTransaction(open[3]);
    EXPECT_EQ(dump(), "{}") << "a record used again starts with an empty tree";
    settings->commitTransaction(open[249]);
    settings->commitTransaction(open[0]);
    settings->commitTransaction(nullptr);
    EXPECT_EQ(dump(), "{t: 0}");
    for (Transaction* transaction : open) {
        settings->destroyTransaction(transaction);
    }
}

TEST_P(Subtrees, DestroyedNodesAreToldParentsFirstWhileAllStillExist) {
    settings->setInt64("/a/b/c", 1);
    settings->setInt64("/a/d", 2);
    const Action seeAll = [&] { EXPECT_EQ(dump(), "{a: {b: {c: 1}, d: 2}}"); };
    onNode("/a", "N", seeAll);
    onTree("/a", "T", seeAll);
    settings->destroyItem("a");
    settings->destroyItem("/a");
    EXPECT_EQ(takeEvents(), "N -/a, T /a:-/a/b, T /a:-/a/b/c, T /a:-/a/d");
    EXPECT_EQ(dump() + takeLog(), "{}");
}

TEST_P(Subtrees, RootAndSubscriptionsOutliveWhatIsDestroyed) {
    const Item* root = at("");
    onNodes({"/", "/a", "/a/b", "/c"});
    for (const char* path : {"/", ""}) {
        settings->setInt64("/a/b", 1);
        settings->setInt64("/c", 1);
        settings->destroyItem(path);
        EXPECT_EQ(takeEvents(), "N /a/b, N /c, N -/a, N -/a/b, N -/c");
        EXPECT_EQ(at(""), root);
        EXPECT_EQ(dump(), "{}");
    }
}

TEST_P(Subtrees, SetDictionaryKeepsReplacesOrCreatesAlsoTheRoot) {
    settings->setInt64("/d/x", 1);
    settings->setInt64("/v", 1);
    onNodes({"/d", "/d/x", "/v", "/p", "/p/q"});
    settings->setDictionary("/d");
    settings->setDictionary("v");
    settings->setDictionary("/p/q");
    EXPECT_EQ(takeEvents(), "N /d, N -/v, N /v, N /p/q");
    EXPECT_EQ(dump(), "{d: {x: 1}, v: {}, p: {q: {}}}");

    onNode("/", "N");
    settings->setInt64("/", 5);
    settings->setDictionary("/");
    EXPECT_EQ(takeEvents(), "N <ISettings root>, N -<ISettings root>, N <ISettings root>");
    settings->setInt64("/a", 1);
    EXPECT_EQ(dump(), "{a: 1}");
    settings->setInt64("/", 5);
    settings->destroyItem("/");
    EXPECT_EQ(settings->getAsInt64("/"), 5) << "there is nothing below a value to destroy";
}

TEST_P(Subtrees, CopyIsApartAndLentNodeIsLive) {
    settings->setInt64("/a/x", 1);
    const Item* copy = own(settings->createDictionaryFromSettings("/a"));
    const Item* lent = settings->getSettingsDictionary("a");
    settings->setInt64("/a/x", 2);
    EXPECT_EQ(describe(*dictionary, copy) + dump(copy), "<full settings>{x: 1}");
    EXPECT_EQ(dump(lent), "{x: 2}");
    EXPECT_EQ(lent, settings->getSettingsDictionary("/a"));
    EXPECT_EQ(settings->getSettingsDictionary("/none"), nullptr);
    EXPECT_EQ(dump(own(settings->createDictionaryFromSettings("/none"))), "{}");
    EXPECT_EQ(takeLog(), "");
}

TEST_P(Subtrees, InitialisationWorksOnceInTheLifeOfTheLibrary) {
    onNode("/x", "N");
    settings->setInt64("/own", 1);
    settings->initializeFromDictionary(nullptr);
    settings->initializeFromDictionary(makeSource({{"x", 1}, {"own", 2}}));
    EXPECT_EQ(dump(), "{own: 2, x: 1}");
    EXPECT_EQ(takeEvents() + takeLog(), "");
    for (const char* expected : {"{own: 2, x: 1}", "{}"}) {
        settings->initializeFromDictionary(makeSource({{"late", 1}}));
        EXPECT_EQ(takeLog(), "1 initializeFromDictionaryImpl: already initialized");
        EXPECT_EQ(dump(), expected);
        restart();
    }
}
