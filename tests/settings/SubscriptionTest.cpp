// Subscriptions, the order of their events, and callbacks that change both.
#include "support/Store.h"

#include <algorithm>

using namespace foreign;

VORN_OVER_BOTH_SERVICES(Subscriptions);

TEST_P(Subscriptions, NodeComesFirstThenEnclosingNodesFromTheNearestByTheirExactPaths) {
    for (const char* path : {"", "/", "/a", "/a/b", "/a/b/c", "/a/bb", "/A/b", "a", "a/b/c", "/a/",
                             "//a/b/c", "/a/b/c/"}) {
        onNode(path, path);
        onTree(path, path);
    }
    settings->setInt64("a/b/c", 1);
    EXPECT_EQ(takeEvents(), "/a/b/c /a/b/c, /a/b /a/b:/a/b/c, /a /a:/a/b/c");
    settings->setInt64("/a", 1);
    settings->setDictionary("/");
    EXPECT_EQ(takeEvents(), "/a /a, / <ISettings root>");
}

TEST_P(Subscriptions, NewestComesFirstWithThousandsOfPathsOfAnyLengthAndBytes) {
    const auto pathOf = [](size_t i) {
        return "/gr\xC3\xBC\xFF/" + std::string(i / 5, 'n') + std::to_string(i);
    };
    std::vector<SubscriptionId*> ids;
    for (const char* label : {"1", "2", "3"}) {
        for (size_t i = 0; i < 3000; ++i) {
            ids.push_back(onNode(pathOf(i), label));
            onTree(pathOf(i), label);
        }
    }
    for (size_t i = 0; i < 3000; i += 2) {
        unsubscribe(ids[i]);
    }
    for (size_t i = 0; i < 3000; ++i) {
        const std::string path = pathOf(i), child = path + "/x", event = " " + path + ":" + child;
        settings->setInt64(path.c_str(), 1);
        ASSERT_EQ(takeEvents(), "3 " + path + ", 2 " + path + (i % 2 ? ", 1 " + path : ""));
        settings->setInt64(child.c_str(), 1);
        ASSERT_EQ(takeEvents(), "3" + event + ", 2" + event + ", 1" + event);
    }
    for (SubscriptionId* id : ids) { // of some for the second time
        unsubscribe(id);
    }
    for (size_t i = 0; i < 3000; ++i) {
        settings->setInt64(pathOf(i).c_str(), 1);
    }
    EXPECT_EQ(takeEvents(), "");
}

TEST_P(Subscriptions, AllNodesAroundADeepOneAreTold) {
    std::string path;
    for (size_t depth = 1; depth <= 40; ++depth) {
        path += "/" + std::string(depth, 'n');
        onTree(path, path.c_str());
    }
    onNode(path, path.c_str());
    settings->setInt64(path.c_str(), 1);
    std::string expected = path + " " + path, around = path;
    while (around.resize(around.rfind('/')), !around.empty()) {
        expected += ", " + around + " " + around + ":" + path;
    }
    EXPECT_EQ(takeEvents(), expected);
}

TEST_P(Subscriptions, NewestComesFirstAmongAnyNumberOfOnePath) {
    std::vector<SubscriptionId*> ids;
    Lines expected;
    for (int i = 0; i < 40; ++i) {
        const std::string label = std::to_string(i);
        ids.push_back(onTree("/x", label.c_str()));
        expected.insert(expected.begin(), label + " /x:/x/y");
        settings->setInt64("/x/y", i);
        EXPECT_EQ(takeEvents(), join(expected, ", "));
    }
    std::erase_if(expected, [](auto& event) { return std::stoi(event) % 4 != 0; });
    for (int i = 0; i < 80; ++i) { // each twice, the newest last; more than half of them
        unsubscribe(i % 4 ? ids[i % 40] : nullptr);
    }
    EXPECT_FALSE(settings->subscribeToTreeChangeEvents("/x", nullptr, nullptr));
    settings->setInt64("/x/y", 0);
    EXPECT_EQ(takeEvents(), join(expected, ", "));
}

// -- callbacks that write, subscribe and unsubscribe

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
        if (std::exchange(isDone, true)) {
            return;
        }
        for (int i = 0; i < 200; ++i) { // enough to move what is being walked
            onNode("/other/" + std::to_string(i), "other");
        }
        onNode("/a/b/x", "node");
        onTree("/a/b", "tree", [&] {
            onTree("/a/b", "same");
            onTree("/a", "above");
        });
    });
    onNode("/a/b/x", "second");
    settings->setInt64("/a/b/x", 1);
    EXPECT_EQ(takeEvents(), "second /a/b/x, first /a/b/x, tree /a/b:/a/b/x, above /a:/a/b/x")
        << "enclosing nodes are looked at one after the other";
    settings->setInt64("/a/b/x", 1);
    EXPECT_EQ(takeEvents().rfind("node /a/b/x, second /a/b/x, first /a/b/x, same /a/b", 0), 0u);
}

// While an event has still to reach it; also when a nested event ends it.
TEST_P(Subscriptions, EndedOneIsNotCalledAnyMoreNorIsItsRecordsNextUser) {
    for (const bool isTree : {false, true}) {
        for (const bool isNested : {false, true}) {
            const std::string event = isTree ? " /a:/a/x" : " /a/x";
            const auto subscribe = [&](const char* label, Action then = {}) {
                return isTree ? onTree("/a", label, then) : onNode("/a/x", label, then);
            };
            SubscriptionId *self = nullptr, *reused = nullptr;
            subscribe("last");
            SubscriptionId* const waiting = subscribe("waiting");
            const Action change = [&] {
                unsubscribe(self);
                unsubscribe(waiting);
                reused = subscribe("reused");
            };
            onNode("/inner", "inner", change);
            self = subscribe("self",
                             isNested ? Action([&] { settings->setInt64("/inner", 1); }) : change);
            settings->setInt64("/a/x", 1);
            EXPECT_EQ(takeEvents(),
                      "self" + event + (isNested ? ", inner /inner" : "") + ", last" + event);
            EXPECT_EQ(reused, waiting);
            settings->setInt64("/a/x", 1);
            EXPECT_EQ(takeEvents(), "reused" + event + ", last" + event);
            restart();
        }
    }
}
