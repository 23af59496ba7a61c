// Subscriptions, the order of their events, and callbacks that change both.
#include "support/Store.h"

#include <algorithm>

using namespace foreign;

VORN_OVER_BOTH_SERVICES(Subscriptions);

TEST_P(Subscriptions, NewestOfAPathComesFirstHoweverManyThereAre) {
    constexpr size_t kPaths = 3000;
    const auto pathOf = [](size_t i) { return "/group/number/" + std::to_string(i); };
    std::vector<SubscriptionId*> ids;
    for (const char* label : {"1", "2", "3"}) {
        for (size_t i = 0; i < kPaths; ++i) {
            ids.push_back(onNode(pathOf(i), label));
            onTree(pathOf(i), label);
        }
    }
    for (size_t i = 0; i < kPaths; i += 2) {
        unsubscribe(ids[i]);
    }
    for (size_t i = 0; i < kPaths; ++i) {
        const std::string path = pathOf(i), child = path + "/x", event = " " + path + ":" + child;
        settings->setInt64(path.c_str(), 1);
        ASSERT_EQ(takeEvents(), "3 " + path + ", 2 " + path + (i % 2 ? ", 1 " + path : ""));
        settings->setInt64(child.c_str(), 1);
        ASSERT_EQ(takeEvents(), "3" + event + ", 2" + event + ", 1" + event);
    }
    std::vector<SubscriptionId*> five;
    for (const char* label : {"1", "2", "3", "4", "5"}) {
        five.push_back(onNode("/five", label));
    }
    for (const size_t ended : {0, 1, 2, 4}) { // three, so that the others are moved
        unsubscribe(five[ended]);
    }
    settings->setInt64("/five", 1);
    EXPECT_EQ(takeEvents(), "4 /five");
}

TEST_P(Subscriptions, EachHandleIsOneSubscriptionOfOneKind) {
    int count = 0;
    const auto callback = [](const Item*, ChangeEvent, void* userData) {
        ++*static_cast<int*>(userData);
    };
    SubscriptionId* tree = onTree("/a", "T");
    SubscriptionId* first = settings->subscribeToNodeChangeEvents("/a", callback, &count);
    SubscriptionId* second = settings->subscribeToNodeChangeEvents("/a", callback, &count);
    EXPECT_EQ(settings->subscribeToNodeChangeEvents("/a", nullptr, &count), nullptr);
    EXPECT_EQ(settings->subscribeToTreeChangeEvents("/a", nullptr, &count), nullptr);
    settings->setInt64("/a", 1);
    EXPECT_EQ(count, 2);
    unsubscribe(second);
    unsubscribe(second);
    unsubscribe(nullptr);
    unsubscribe(reinterpret_cast<SubscriptionId*>(&count));
    settings->setInt64("/a", 1);
    EXPECT_EQ(count, 3);
    unsubscribe(first);
    settings->setInt64("/a/b", 1);
    unsubscribe(tree);
    settings->setInt64("/a/b", 1);
    EXPECT_EQ(takeEvents() + ", " + std::to_string(count), "T /a:/a/b, 3");
}

TEST_P(Subscriptions, PathsAreComparedByteForByte) {
    for (const char* path : {"a/b", "/a/b/", "//a/b", "/A/b", "/a/bb", "/a", ""}) {
        EXPECT_NE(onNode(path, "N"), nullptr);
    }
    for (const char* path : {"a", "/a/", "/a/b", "/", ""}) {
        EXPECT_NE(onTree(path, "T"), nullptr);
    }
    onNode("/a/b", "match");
    settings->setInt64("a/b", 1);
    EXPECT_EQ(takeEvents(), "match /a/b");
}

TEST_P(Subscriptions, NodeComesFirstThenEnclosingNodesFromTheNearest) {
    for (const char* path : {"/", "", "/a", "/a/b", "/a/b/c"}) {
        onTree(path, "T");
    }
    onNode("/a/b/c", "N");
    onNode("/", "R");
    settings->setInt64("/a/b/c", 1);
    EXPECT_EQ(takeEvents(), "N /a/b/c, T /a/b:/a/b/c, T /a:/a/b/c");
    settings->setInt64("/a", 1);
    settings->setDictionary("/");
    EXPECT_EQ(takeEvents(), "R <ISettings root>");
}

TEST_P(Subscriptions, DeepPathsOfForeignNamesMatch) {
    std::string path;
    for (int depth = 0; depth < 40; ++depth) {
        onTree(path, "T");
        path += "/n\xC3\xA4me\xFF" + std::to_string(depth);
    }
    onNode(path, "N");
    settings->setInt64(path.c_str(), 1);
    const std::string events = takeEvents();
    EXPECT_EQ(events.rfind("N " + path + ", T ", 0), 0u);
    EXPECT_EQ(std::count(events.begin(), events.end(), ':'), 39);
}

TEST_P(Subscriptions, AllSubscriptionsOfOnePathAreCalledNewestFirst) {
    std::vector<SubscriptionId*> ids;
    std::string all, rest;
    for (int count = 1; count <= 40; ++count) {
        const std::string label = std::to_string(count), event = label + " /x:/x/y";
        ids.push_back(onTree("/x", label.c_str()));
        all = event + (all.empty() ? "" : ", ") + all;
        rest = count % 4 == 0 ? event + (rest.empty() ? "" : ", ") + rest : rest;
        settings->setInt64("/x/y", count);
        EXPECT_EQ(takeEvents(), all);
    }
    for (int count = 1; count <= 40; ++count) {
        unsubscribe(count % 4 ? ids[count - 1] : nullptr);
    }
    settings->setInt64("/x/y", 0);
    EXPECT_EQ(takeEvents(), rest);
}

TEST_P(Subscriptions, WriteInACallbackIsToldBeforeTheOuterEventGoesOn) {
    onTree("/a", "T", [&] { settings->setInt64("/b", 3); });
    onNode("/a/x", "old");
    onNode("/a/x", "new", [&] { settings->setInt64("/b", 2); });
    onNode("/b", "B", [&] { EXPECT_GE(settings->getAsInt64("/b"), 2); });
    settings->setInt64("/a/x", 1);
    EXPECT_EQ(takeEvents(), "new /a/x, B /b, old /a/x, T /a:/a/x, B /b");
}

TEST_P(Subscriptions, SubscriptionMadeDuringAStepIsNotPartOfIt) {
    bool isDone = false;
    onNode("/a/b/x", "first", [&] {
        if (!std::exchange(isDone, true)) {
            for (int i = 0; i < 200; ++i) { // enough to move what is being walked
                onNode("/other/" + std::to_string(i), "other");
            }
            onNode("/a/b/x", "node");
            onTree("/a/b", "tree", [&] {
                onTree("/a/b", "same");
                onTree("/a", "above");
            });
        }
    });
    onNode("/a/b/x", "second");
    settings->setInt64("/a/b/x", 1);
    EXPECT_EQ(takeEvents(), "second /a/b/x, first /a/b/x, tree /a/b:/a/b/x, above /a:/a/b/x")
        << "enclosing nodes are looked at one after the other";
    settings->setInt64("/a/b/x", 1);
    EXPECT_EQ(takeEvents().rfind("node /a/b/x, second /a/b/x, first /a/b/x, same /a/b", 0), 0u);
}

// One that is ended while an event has still to reach it is not called, nor is the one that was
// made since in its record; also when a nested event did it.
TEST_P(Subscriptions, EndedOneIsNotCalledAnyMoreNorIsItsRecordsNextUser) {
    for (const bool isTree : {false, true}) {
        for (const bool isNested : {false, true}) {
            const std::string event = isTree ? " /a:/a/x" : " /a/x";
            const auto subscribe = [&](const char* label, Action then = {}) {
                return isTree ? onTree("/a", label, then) : onNode("/a/x", label, then);
            };
            SubscriptionId *self = nullptr, *reused = nullptr;
            SubscriptionId* last = subscribe("last");
            SubscriptionId* const waiting = subscribe("waiting");
            const auto change = [&] {
                unsubscribe(self);
                unsubscribe(waiting);
                reused = subscribe("reused");
            };
            SubscriptionId* inner = onNode("/inner", "inner", change);
            self =
                subscribe("self", [&] { isNested ? settings->setInt64("/inner", 1) : change(); });
            settings->setInt64("/a/x", 1);
            EXPECT_EQ(takeEvents(),
                      "self" + event + (isNested ? ", inner /inner" : "") + ", last" + event);
            EXPECT_EQ(reused, waiting);
            settings->setInt64("/a/x", 1);
            EXPECT_EQ(takeEvents(), "reused" + event + ", last" + event);
            for (SubscriptionId* id : {last, inner, reused}) {
                unsubscribe(id);
            }
        }
    }
}

TEST_P(Subscriptions, CallbackMayEndSubscriptionsOfEitherKind) {
    std::vector<SubscriptionId*> ids;
    const auto endAll = [&] {
        std::for_each(ids.begin(), ids.end(), settings->unsubscribeToChangeEvents);
    };
    for (int i = 0; i < 20; ++i) {
        ids.push_back(onTree("/a/b", "T", endAll));
        ids.push_back(onTree("/a", "T", endAll));
    }
    settings->setInt64("/a/b/x", 1);
    ids = {onNode("/a/b/x", "N"), onTree("/a/b", "T"), onNode("/a/b/x", "N", endAll)};
    settings->setInt64("/a/b/x", 1);
    settings->setInt64("/a/b/x", 1);
    EXPECT_EQ(takeEvents(), "T /a/b:/a/b/x, N /a/b/x");
}
