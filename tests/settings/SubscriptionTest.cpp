// Subscriptions, the order of their events, and callbacks that change both.
#include "support/Store.h"

#include <thread>

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

TEST_P(Subscriptions, NewestComesFirstAmongHundredsOfPathsOfAnyLengthDepthAndBytes) {
    const std::string top = "/gr\xC3\xBC\xFF";
    const auto pathOf = [&](size_t i) { // of one long name, or of up to 42
        std::string names(i, 'n');
        for (size_t slash = 12; i % 2 && slash < names.size(); slash += 12) {
            names[slash] = '/';
        }
        return top + "/" + names + std::to_string(i);
    };
    onTree(top, "T");
    std::vector<V04SubscriptionId*> ids;
    for (const char* label : {"1", "2", "3"}) {
        for (size_t i = 0; i < 500; ++i) {
            ids.push_back(onNode(pathOf(i), label));
            onTree(pathOf(i), label);
        }
    }
    for (size_t i = 0; i < 500; i += 3) {
        unsubscribe(ids[i]);
    }
    for (size_t i = 0; i < 500; ++i) {
        const std::string path = pathOf(i), child = path + "/x", event = " " + path + ":" + child;
        settings->setInt64(path.c_str(), 1);
        ASSERT_EQ(takeEvents(), "3 " + path + ", 2 " + path + (i % 3 ? ", 1 " + path : "") +
                                    ", T " + top + ":" + path);
        settings->setInt64(child.c_str(), 1);
        ASSERT_EQ(takeEvents(),
                  "3" + event + ", 2" + event + ", 1" + event + ", T " + top + ":" + child);
    }
    for (size_t i = 0; i < 1000; ++i) { // of some for the second time
        unsubscribe(ids[i]);
    }
    for (size_t i = 0; i < 500; ++i) { // the last one finds its place again
        onNode(pathOf(i), "4");
        unsubscribe(ids[1000 + i]);
        settings->setInt64(pathOf(i).c_str(), 1);
        ASSERT_EQ(takeEvents(), "4 " + pathOf(i) + ", T " + top + ":" + pathOf(i));
    }
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

// A path that nobody needs any more stays while it is on the way of an event, whoever else writes.
TEST_P(Subscriptions, OneThatEndsDuringAnEventLeavesTheWayUp) {
    V04SubscriptionId *self = nullptr, *below = onNode("/a/w/below", "below");
    onTree("/a", "T", [&] { unsubscribe(std::exchange(below, nullptr)); });
    settings->setInt64("/a/w", 1);
    EXPECT_EQ(takeEvents(), "T /a:/a/w");
    onTree("/q", "Q");
    self = onNode("/a/x", "self", [&] {
        unsubscribe(self);
        std::thread([&] { settings->setInt64("/b", 1); }).join();
        onTree("/q/r", "R"); // where the path was, if that is gone
    });
    settings->setInt64("/a/x", 1);
    EXPECT_EQ(takeEvents(), "self /a/x, T /a:/a/x");
}

// While an event has still to reach it; also when a nested event ends it.
TEST_P(Subscriptions, EndedOneIsNotCalledAnyMoreNorIsItsRecordsNextUser) {
    for (const bool isTree : {false, true}) {
        for (const bool isNested : {false, true}) {
            const std::string event = isTree ? " /a:/a/x" : " /a/x";
            const auto subscribe = [&](const char* label, Action then = {}) {
                return isTree ? onTree("/a", label, then) : onNode("/a/x", label, then);
            };
            V04SubscriptionId *self = nullptr, *reused = nullptr;
            subscribe("last");
            V04SubscriptionId* const waiting = subscribe("waiting");
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
