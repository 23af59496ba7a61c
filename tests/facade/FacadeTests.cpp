// The facade over the plugins as an application has them. Where it matters what reaches the table,
// slots are replaced in a copy of it.

#include "vorn/host/Host.h"
#include "vorn/settings/SettingsUtils.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <thread>

using namespace vorn::dictionary;
using namespace vorn::settings;
using Lines = std::vector<std::string>;

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
    Lines heard;

    Lines takeHeard() {
        return std::exchange(heard, {});
    }
    // Notes "before > now".
    template <class T>
    Subscription listen(const char* path) {
        return settings.onChange<T>(path, [this](auto before, auto now) {
            heard.push_back(show(before) + " > " + show(now));
        });
    }
    // Notes "label path path ...", destroyed ones with a "!".
    auto noteBatch(const char* label) {
        return [this, label](const ChangeBatch& changes) {
            heard.push_back(label);
            for (const Change& change : changes) {
                const bool isGone = change.type == ChangeEventType::eDestroyed;
                heard.back() += ' ' + change.path + (isGone ? "!" : "");
            }
        };
    }
    DictionaryGuard makeSource() const {
        DictionaryGuard source(dictionary, dictionary->makeDictionaryAtPath(nullptr, "source"));
        dictionary->makeIntAtPath(source.get(), "a/x", 1);
        dictionary->makeIntAtPath(source.get(), "a/y", 2);
        return source;
    }
};

template <class T>
void expectRoundTrip(const Settings& settings, std::vector<T> values) {
    for (const T& value : values) {
        settings.set("/value", value);
        EXPECT_EQ(settings.get<T>("/value"), value);
    }
    settings.set("/values", values);
    EXPECT_EQ(settings.get<std::vector<T>>("/values"), values);
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

template <class To, class From>
void expectConverts(const Settings& settings, From from, To to) {
    settings.set("/n", from);
    EXPECT_EQ(settings.get<To>("/n"), to);
    settings.set("/n", std::vector<From>{from, 1});
    EXPECT_EQ(settings.get<std::vector<To>>("/n"), (std::vector<To>{to, 1}));
}

TEST_F(Facade, NumbersThatDoNotFitSaturate) {
    expectConverts<int64_t>(settings, UINT64_MAX, INT64_MAX);
    expectConverts<uint64_t>(settings, int64_t{-1}, 0);
    expectConverts<uint8_t>(settings, int64_t{-1}, 0);
    expectConverts<uint8_t>(settings, int64_t{1} << 40, 255);
    expectConverts<int32_t>(settings, int64_t{1} << 32, INT32_MAX);
    expectConverts<int32_t>(settings, -(int64_t{1} << 40), INT32_MIN);
    expectConverts<float>(settings, 1e300, FLT_MAX);
    expectConverts<float>(settings, -1e300, -FLT_MAX);
    expectConverts<double>(settings, std::numeric_limits<long double>::max(), DBL_MAX);
}

TEST_F(Facade, WhatIsMissingOrDoesNotConvertIsNothing) {
    settings.set("/text", "12 monkeys");
    settings.set("/number", "12");
    settings.set("/list", std::vector<std::string>{"1", "two"});
    EXPECT_EQ(settings.get<int>("/text"), std::nullopt);
    EXPECT_EQ(settings.get<std::string>("/list"), std::nullopt);
    EXPECT_EQ(settings.get<std::vector<int>>("/list"), std::nullopt);
    EXPECT_EQ(settings.get<std::vector<int>>("/number"), std::nullopt);
    EXPECT_EQ(settings.get("/text", 7), 7);
    EXPECT_EQ(settings.get("/number", 7), 12);
    EXPECT_EQ(settings.get<std::string>("/none", "fallback"), "fallback");
    EXPECT_EQ(settings.text("/number").view(), "12");
    settings.set("/list", std::vector<int>{});
    EXPECT_EQ(settings.get<std::vector<int>>("/list"), std::vector<int>{});
    EXPECT_EQ(settings.get<std::vector<int>>("/none"), std::nullopt);
    settings.setDefault("/number", 5);
    settings.setDefault("/none", std::vector<int>{5});
    EXPECT_EQ(settings.get<int>("/number"), 12) << "defaults are written only where nothing is";
    EXPECT_EQ(settings.get<int>("/none/0"), 5);
}

TEST_F(Facade, ViewsNeedNoZeroAtTheirEnd) {
    const std::string text = "/app/" + std::string(200, 'n') + "/tail";
    for (const size_t length : {6u, 47u, 48u, 49u, 205u}) {
        const std::string_view view = std::string_view(text).substr(0, length);
        settings.set(view, view);
        EXPECT_EQ(settings.get<std::string>(std::string(view)), view);
        settings.set("/views", std::vector<std::string_view>{view, view.substr(0, 3)});
        EXPECT_EQ(settings.get<Lines>("/views"), (Lines{std::string(view), "/ap"}));
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

// -- what reaches the table

// What guards of the other types leave behind, the sanitizers tell.
TEST_F(Facade, GuardsGiveBackExactlyOnce) {
    static const ISettings* s_real;
    static int s_subscribed; // what was handed out and not given back
    s_real = table;
    s_subscribed = 0;
    ISettings counting = *table;
    counting.subscribeToNodeChangeEvents = [](auto... arguments) {
        ++s_subscribed;
        return s_real->subscribeToNodeChangeEvents(arguments...);
    };
    counting.unsubscribeToChangeEvents = [](SubscriptionId* id) {
        --s_subscribed;
        s_real->unsubscribeToChangeEvents(id);
    };
    const Settings counted(&counting);
    const auto passOn = [](auto make) {
        auto first = make(), second = make();
        second = std::move(first);
        EXPECT_LE(s_subscribed, 1) << "what the target held is given back";
        auto third = std::move(second);
        auto& self = third;
        third = std::move(self);
        EXPECT_TRUE(third);
        third.reset();
        third.reset();
        EXPECT_EQ(s_subscribed, 0) << "once, however often it is asked";
        first = make(); // given back at the end
    };
    counted.set("/a", 1);
    passOn([&] { return counted.text("/a"); });
    passOn([&] { return counted.transaction(); });
    passOn([&] { return counted.onNodeChange("/a", [](auto...) {}); });
    EXPECT_EQ(s_subscribed, 0);
}

// -- subscriptions

TEST_F(Facade, CallablesGetTheItemsOfTheEvent) {
    const std::string_view path = "/a";
    const auto tree = settings.onTreeChange(path, [&](auto* subtree, auto* changed, auto) {
        heard.push_back(settings.pathOf(subtree) + " " + settings.pathOf(changed));
    });
    settings.set("a/b", 1);
    settings.remove("a/b");
    EXPECT_EQ(takeHeard(), (Lines{"/a /a/b", "/a /a/b"}));
}

TEST_F(Facade, ACallableMayEndItsOwnSubscriptionAndOthers) {
    auto token = std::make_shared<int>(0);
    Subscription own;
    Subscription older = settings.onNodeChange("/a", [&](auto...) { heard.push_back("older"); });
    own = settings.onNodeChange("/a", [&, token](auto...) {
        own.reset();
        older.reset();
        heard.push_back("own, still holding " + std::to_string(token.use_count()));
    });
    settings.set("/a", 1);
    settings.set("/a", 2);
    EXPECT_EQ(heard, Lines{"own, still holding 2"});
    EXPECT_EQ(token.use_count(), 1) << "freed after the call";
}

TEST_F(Facade, ACallableMayWriteAndThrow) {
    const auto watch = settings.onChange<int>("/n", [&](auto before, auto now) {
        heard.push_back(show<int>(before) + " > " + show<int>(now));
        settings.set("/n", 10);
        throw 42;
    });
    EXPECT_THROW(settings.set("/n", 1), int);
    EXPECT_EQ(takeHeard(), (Lines{"- > 1", "1 > 10"})) << "both steps in order";
}

TEST_F(Facade, OnChangeCallsOnlyForANewValue) {
    settings.set("/n", 1);
    const auto watch = listen<int>("n");
    settings.set("/n", 1);
    settings.set("/n", "1");
    EXPECT_EQ(takeHeard(), Lines{});
    settings.set("/n", 2);
    settings.set("/n", "two");
    settings.remove("/n");
    settings.set("/n", 3);
    settings.remove("/n");
    EXPECT_EQ(takeHeard(), (Lines{"1 > 2", "2 > -", "- > 3", "3 > -"}));
    settings.set("/f", NAN);
    const auto watchFloat = listen<double>("/f");
    settings.set("/f", NAN);
    EXPECT_EQ(takeHeard(), Lines{}) << "not a number is one value";
}

TEST_F(Facade, OnChangeOfAnArrayFollowsItsElements) {
    using Numbers = std::vector<int>;
    const auto watch = listen<Numbers>("/list");
    settings.set("/list", Numbers{1, 2});
    settings.set("/list", Numbers{1, 2});
    EXPECT_EQ(takeHeard(), Lines{"- > { 1, 2 }"}) << "one call for the whole write";
    settings.set("/list/1", 5);
    settings.set("/list/2", 4);
    settings.remove("/list/2");
    EXPECT_EQ(takeHeard(),
              (Lines{"{ 1, 2 } > { 1, 5 }", "{ 1, 5 } > { 1, 5, 4 }", "{ 1, 5, 4 } > { 1, 5 }"}));
    settings.remove("/list/0");
    settings.set("/list/0", 7);
    settings.remove("/list");
    EXPECT_EQ(takeHeard(), (Lines{"{ 1, 5 } > -", "- > { 7, 5 }", "{ 7, 5 } > -"})) << "a gap";
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
    std::thread other(write, 0);
    write(1);
    other.join();
    const int callsSoFar = calls;
    settings.set("/n", *settings.get<int>("/n"));
    EXPECT_EQ(calls, callsSoFar) << "the value that stayed was the last one told";
}

// -- merges, transactions, batches

TEST_F(Facade, AMergeIsOneBatchPerSubscriber) {
    const auto first = settings.onChangeBatch("/a", noteBatch("first"));
    const auto second = settings.onChangeBatch("/a/x", noteBatch("second"));
    settings.merge("/", makeSource().get());
    EXPECT_EQ(takeHeard(), (Lines{"first /a /a/x /a/y", "second /a/x"}));
    settings.set("/a/x", 3);
    EXPECT_EQ(takeHeard(), (Lines{"second /a/x", "first /a/x"})) << "single events as they come";
    settings.remove("/a");
    EXPECT_EQ(takeHeard(), (Lines{"first /a! /a/x! /a/y!", "second /a/x!"}));
}

TEST_F(Facade, AMergeAsksItsPolicyPerNode) {
    settings.set("/a/x", 100);
    settings.merge("/", makeSource().get(), [](const Item* dst, auto...) {
        return dst ? UpdateAction::eKeep : UpdateAction::eOverwrite;
    });
    settings.merge("/b", settings.copy("/a").get());
    EXPECT_TRUE(settings.get<int>("/b/x") == 100 && settings.get<int>("/b/y") == 2);
}

TEST_F(Facade, ATransactionShowsNothingBeforeItsCommit) {
    const auto watch = settings.onChangeBatch("/t", noteBatch("batch"));
    settings.transaction().set("/t/dropped", 1);
    TransactionGuard transaction = settings.transaction();
    transaction.set("/t/int", UINT64_MAX);
    transaction.set(std::string_view("/t/flag!", 7), true);
    transaction.set("t/text", std::string_view("view!", 4));
    EXPECT_FALSE(settings.has("/t"));
    transaction.commit();
    transaction.commit();
    EXPECT_EQ(heard, (Lines{"batch /t /t/int /t/flag /t/text", "batch /t/int /t/flag /t/text"}));
    EXPECT_EQ(settings.get<int64_t>("/t/int"), INT64_MAX);
    EXPECT_EQ(settings.get<bool>("/t/flag"), true);
    EXPECT_EQ(settings.get<std::string>("/t/text"), "view");
}

TEST_F(Facade, AScopeGathersWhatItsThreadWrites) {
    const auto watch = settings.onChangeBatch("/a", noteBatch("batch"));
    {
        BatchScope scope;
        settings.set("/a/x", 1);
        settings.merge("/b", makeSource().get());
        {
            BatchScope inner;
            settings.remove("/a/x");
        }
        std::thread([&] { settings.set("/a/other", 1); }).join();
        EXPECT_EQ(takeHeard(), Lines{"batch /a/other"}) << "another thread's write does not wait";
        settings.set("/a/y", 1);
    }
    EXPECT_EQ(heard, Lines{"batch /a/x /a/x! /a/y"});
}

TEST_F(Facade, ABatchCallableMayWriteAndEndSubscriptionsThatWait) {
    Subscription waiting;
    Subscription first;
    first = settings.onChangeBatch("/a", [&](const ChangeBatch& changes) {
        noteBatch("first")(changes);
        if (changes.size() > 1) {
            waiting.reset();
            settings.set("/a/y", 9);
            first.reset();
        }
    });
    waiting = settings.onChangeBatch("/a/x", noteBatch("waiting"));
    settings.merge("/", makeSource().get());
    EXPECT_EQ(heard, (Lines{"first /a /a/x /a/y", "first /a/y"}));
}
