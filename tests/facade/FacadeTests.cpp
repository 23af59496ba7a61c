// The facade over the plugins as an application has them.
#include "support/Threads.h"
#include "vorn/host/Host.h"
#include "vorn/settings/SettingsUtils.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

using namespace vorn::dictionary;
using namespace vorn::settings;

template <class T>
std::string show(const std::optional<T>& value) {
    return value ? testing::PrintToString(*value) : "-";
}

class Facade : public testing::Test {
protected:
    vorn::host::Host host{{VORN_TEST_PLUGIN_DIR}, "facade tests"};
    const ISettings* table = host.acquire<ISettings>();
    const IDictionary* dictionary = host.acquire<IDictionary>();
    const Settings settings{table, dictionary};
    std::string heard;

    void hear(const std::string& text) {
        heard += (heard.empty() ? "" : ", ") + text;
    }
    std::string takeHeard() {
        return std::exchange(heard, {});
    }
    // Hears "before > now".
    template <class T>
    Subscription listen(const char* path) {
        return settings.onChange<T>(
            path, [this](auto before, auto now) { hear(show(before) + " > " + show(now)); });
    }
    // Hears "label path path ...", destroyed ones with a "!".
    auto hearBatch(const char* label) {
        return [this, label](const ChangeBatch& changes) {
            std::string text = label;
            for (const Change& change : changes) {
                const bool isGone = change.type == ChangeEventType::eDestroyed;
                text += ' ' + change.path + (isGone ? "!" : "");
            }
            hear(text);
        };
    }
    DictionaryGuard makeSource() const {
        DictionaryGuard source(dictionary, dictionary->makeDictionaryAtPath(nullptr, "source"));
        dictionary->makeIntAtPath(source.get(), "a/x", 1);
        dictionary->makeIntAtPath(source.get(), "a/y", 2);
        return source;
    }
};

// Writes values one by one and as an array, and reads them as values of another type.
template <class From, class To>
void expectReads(const Settings& settings, std::vector<From> written, std::vector<To> read) {
    for (size_t i = 0; i < written.size(); ++i) {
        settings.set("/value", From(written[i]));
        EXPECT_EQ(settings.get<To>("/value"), read[i]);
    }
    settings.set("/values", written);
    EXPECT_EQ(settings.get<std::vector<To>>("/values"), read);
}

template <class T>
void expectRoundTrip(const Settings& settings, std::vector<T> values) {
    expectReads(settings, values, values);
}

TEST_F(Facade, EveryTypeComesBackAsWrittenTheNeutralValuesIncluded) {
    expectRoundTrip<bool>(settings, {false, true, true});
    expectRoundTrip<int8_t>(settings, {0, -128, 127});
    expectRoundTrip<int32_t>(settings, {0, INT32_MIN, INT32_MAX});
    expectRoundTrip<uint32_t>(settings, {0, UINT32_MAX});
    expectRoundTrip<int64_t>(settings, {0, INT64_MIN, INT64_MAX});
    expectRoundTrip<long long>(settings, {0, INT64_MIN, INT64_MAX});
    expectRoundTrip<uint64_t>(settings, {0, INT64_MAX});
    expectRoundTrip<float>(settings, {0.0f, -1.5f, 3.4e38f});
    expectRoundTrip<double>(settings, {0.0, 0.1, -INFINITY});
    expectRoundTrip<std::string>(settings, {"", "text", std::string(100, 'x')});
}

TEST_F(Facade, NumbersThatDoNotFitSaturate) {
    constexpr int64_t kOne = 1;
    expectReads<uint64_t, int64_t>(settings, {UINT64_MAX, 1}, {INT64_MAX, 1});
    expectReads<int64_t, uint64_t>(settings, {-1, 1}, {0, 1});
    expectReads<int64_t, uint8_t>(settings, {-1, kOne << 40}, {0, 255});
    expectReads<int64_t, int32_t>(settings, {kOne << 32, -(kOne << 40)}, {INT32_MAX, INT32_MIN});
    expectReads<double, float>(settings, {1e300, -1e300}, {FLT_MAX, -FLT_MAX});
    using Limits = std::numeric_limits<long double>;
    expectReads<long double, double>(settings, {Limits::max(), Limits::lowest()},
                                     {DBL_MAX, -DBL_MAX});
}

TEST_F(Facade, WhatIsMissingOrDoesNotConvertIsNothing) {
    settings.set("/text", "12 monkeys");
    settings.set("/number", "12");
    settings.set("/list", std::vector<std::string>{"1", "two"});
    settings.set("/empty", std::vector<int>{});
    EXPECT_FALSE(settings.get<int>("/text") || settings.get<std::string>("/list"));
    for (const char* path : {"/none", "/number", "/list"}) {
        EXPECT_EQ(settings.get<std::vector<int>>(path), std::nullopt);
    }
    EXPECT_EQ(settings.get<std::vector<int>>("/empty"), std::vector<int>{});
    EXPECT_EQ(settings.get("/text", 7), 7);
    EXPECT_EQ(settings.get<std::string>("/none", "fallback"), "fallback");
    settings.setDefault("/number", 5);
    settings.setDefault("/none", std::vector<int>{5});
    EXPECT_EQ(settings.get("/number", 7), 12) << "defaults are written only where nothing is";
    EXPECT_EQ(settings.get<int>("/none/0"), 5);
}

TEST_F(Facade, ViewsNeedNoZeroAtTheirEnd) {
    const std::string text = "/app/" + std::string(200, 'n') + "/tail";
    for (const size_t length : {6u, 47u, 48u, 49u, 205u}) {
        const std::string_view view = std::string_view(text).substr(0, length);
        settings.set(view, view);
        EXPECT_EQ(settings.text(std::string(view)).view(), view);
        settings.set("/views", std::vector<std::string_view>{view, view.substr(0, 3)});
        EXPECT_EQ(settings.text("/views/0").view(), view);
        EXPECT_EQ(settings.text("/views/1").view(), "/ap");
        settings.remove("/app");
    }
    EXPECT_FALSE(settings.has("/app"));
}

TEST_F(Facade, ANullPathIsRefusedEverywhere) {
    const char* null = nullptr;
    settings.set(null, 1);
    settings.remove(null);
    EXPECT_EQ(settings.get<int>(null), std::nullopt);
    EXPECT_FALSE(settings.text(null));
    EXPECT_FALSE(settings.onChange<int>(null, [](auto...) {}));
    EXPECT_EQ(dictionary->getItemChildCount(table->getSettingsDictionary("/")), 0u);
}

// What guards of other types than subscriptions leave behind, the sanitizers tell.
TEST_F(Facade, GuardsGiveBackExactlyOnce) {
    const auto passOn = [](auto make) {
        auto first = make(), second = make();
        second = std::move(first); // gives back what it held
        auto third = std::move(second);
        auto& self = third;
        third = std::move(self);
        EXPECT_TRUE(third);
        third.reset();
        auto next = make(); // has the handle that was given back
        third.reset();
        return next;
    };
    settings.set("/a", 1);
    EXPECT_TRUE(passOn([&] { return settings.text("/a"); }));
    EXPECT_TRUE(passOn([&] { return settings.transaction(); }));
    const auto next = passOn([&, count = 0]() mutable {
        return settings.onNodeChange("/a", [this, i = ++count](auto...) { hear(show<int>(i)); });
    });
    settings.set("/a", 2);
    EXPECT_EQ(takeHeard(), "3");
}

// -- subscriptions

TEST_F(Facade, ACallableGetsTheItemsOfTheEvent) {
    const std::string_view path = "/a";
    const auto tree = settings.onTreeChange(path, [&](auto* subtree, auto* changed, auto) {
        hear(settings.pathOf(subtree) + " " + settings.pathOf(changed));
    });
    settings.set("a/b", 1);
    settings.remove("a/b");
    EXPECT_EQ(heard, "/a /a/b, /a /a/b");
}

TEST_F(Facade, ACallableMayEndItsOwnSubscriptionAndOthers) {
    const auto token = std::make_shared<int>(0);
    Subscription own, older = settings.onNodeChange("/a", [&](auto...) { hear("older"); });
    own = settings.onNodeChange("/a", [&, token](auto...) {
        own.reset();
        older.reset();
        hear("own, still holding " + std::to_string(token.use_count()));
    });
    settings.set("/a", 1);
    settings.set("/a", 2);
    EXPECT_EQ(heard, "own, still holding 2");
    EXPECT_EQ(token.use_count(), 1) << "freed after the call";
}

TEST_F(Facade, ACallableMayWriteAndThrow) {
    const auto watch = settings.onChange<int>("/n", [&](auto before, auto now) {
        hear(show(before) + " > " + show(now));
        settings.set("/n", 10);
        throw 42;
    });
    EXPECT_THROW(settings.set("/n", 1), int);
    EXPECT_EQ(takeHeard(), "- > 1, 1 > 10");
}

TEST_F(Facade, OnChangeCallsOnlyForANewValue) {
    settings.set("/n", 1);
    const auto watch = listen<int>("n");
    settings.set("/n", 1);
    settings.set("/n", "1");
    settings.set("/n", 2);
    settings.set("/n", "two");
    settings.remove("/n");
    settings.set("/n", 3);
    settings.remove("/n");
    EXPECT_EQ(takeHeard(), "1 > 2, 2 > -, - > 3, 3 > -");
    settings.set("/f", NAN);
    const auto watchFloat = listen<double>("/f");
    settings.set("/f", NAN);
    EXPECT_EQ(takeHeard(), "") << "not a number is one value";
}

TEST_F(Facade, OnChangeOfAnArrayFollowsItsElements) {
    const auto watch = listen<std::vector<int>>("/l");
    settings.set("/l", std::vector<int>{1, 2});
    settings.set("/l", std::vector<int>{1, 2});
    EXPECT_EQ(takeHeard(), "- > { 1, 2 }") << "one call for the whole write";
    settings.set("/l/1", 5);
    settings.set("/l/2", 4);
    settings.remove("/l/2");
    EXPECT_EQ(takeHeard(), "{ 1, 2 } > { 1, 5 }, { 1, 5 } > { 1, 5, 4 }, { 1, 5, 4 } > { 1, 5 }");
    settings.remove("/l/0");
    settings.set("/l/0", 7);
    settings.remove("/l");
    EXPECT_EQ(takeHeard(), "{ 1, 5 } > -, - > { 7, 5 }, { 7, 5 } > -") << "a gap";
}

TEST_F(Facade, OnChangeKeepsUpWithSeveralWriters) {
    std::atomic<int> calls{0};
    const auto watch = settings.onChange<int>("/n", [&](auto before, auto now) {
        ++calls;
        EXPECT_NE(before, now);
    });
    const auto write = [&](int first) {
        for (int value = first; value < first + 1000; value += 2) {
            settings.set("/n", value);
        }
    };
    runOnThreads({[&] { write(0); }, [&] { write(1); }});
    const int callsSoFar = calls;
    settings.set("/n", *settings.get<int>("/n"));
    EXPECT_EQ(calls, callsSoFar) << "the value that stayed was the last one told";
}

// -- merges, transactions, batches

TEST_F(Facade, AMergeIsOneBatchPerSubscriber) {
    const auto first = settings.onChangeBatch("/a", hearBatch("first"));
    const auto second = settings.onChangeBatch("/a/x", hearBatch("second"));
    settings.merge("/", makeSource().get());
    EXPECT_EQ(takeHeard(), "first /a /a/x /a/y, second /a/x");
    settings.set("/a/x", 3);
    EXPECT_EQ(takeHeard(), "second /a/x, first /a/x") << "single events as they come";
    settings.remove("/a");
    EXPECT_EQ(takeHeard(), "first /a! /a/x! /a/y!, second /a/x!");
}

TEST_F(Facade, AMergeAsksItsPolicyPerNode) {
    settings.set("/a/x", 100);
    settings.merge("/", makeSource().get(), [](const Item* dst, auto...) {
        return dst ? UpdateAction::eKeep : UpdateAction::eOverwrite;
    });
    settings.merge("/b", settings.copy("/a").get());
    EXPECT_EQ(settings.get<int>("/b/x"), 100);
    EXPECT_EQ(settings.get<int>("/b/y"), 2);
}

TEST_F(Facade, ATransactionShowsNothingBeforeItsCommit) {
    const auto watch = settings.onChangeBatch("/t", hearBatch("batch"));
    settings.transaction().set("/t/dropped", 1);
    TransactionGuard transaction = settings.transaction();
    transaction.set("/t/int", UINT64_MAX);
    transaction.set("/t/float", 0.5f);
    transaction.set(std::string_view("/t/flag!", 7), true);
    transaction.set("t/text", std::string_view("view!", 4));
    EXPECT_FALSE(settings.has("/t"));
    transaction.commit();
    transaction.commit();
    EXPECT_EQ(heard,
              "batch /t /t/int /t/float /t/flag /t/text, batch /t/int /t/float /t/flag /t/text");
    EXPECT_EQ(settings.get<int64_t>("/t/int"), INT64_MAX);
    EXPECT_EQ(settings.get<bool>("/t/flag"), true);
    EXPECT_EQ(settings.get<std::string>("/t/text"), "view");
}

TEST_F(Facade, AScopeGathersWhatItsThreadWrites) {
    const auto watch = settings.onChangeBatch("/a", hearBatch("batch"));
    {
        BatchScope scope;
        settings.set("/a/x", 1);
        settings.merge("/b", makeSource().get());
        {
            BatchScope inner;
            settings.remove("/a/x");
        }
        std::thread([&] { settings.set("/a/other", 1); }).join();
        EXPECT_EQ(takeHeard(), "batch /a/other") << "another thread's write does not wait";
        settings.set("/a/y", 1);
    }
    EXPECT_EQ(heard, "batch /a/x /a/x! /a/y");
}

TEST_F(Facade, ABatchCallableMayWriteAndEndSubscriptionsThatWait) {
    Subscription first, waiting;
    first = settings.onChangeBatch("/a", [&](const ChangeBatch& changes) {
        hearBatch("first")(changes);
        if (changes.size() > 1) {
            waiting.reset();
            settings.set("/a/y", 9);
            first.reset();
        }
    });
    waiting = settings.onChangeBatch("/a/x", hearBatch("waiting"));
    settings.merge("/", makeSource().get());
    EXPECT_EQ(heard, "first /a /a/x /a/y, first /a/y");
}
