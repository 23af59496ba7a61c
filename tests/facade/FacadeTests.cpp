// The facade over the plugins as an application has them. Where it matters what reaches the table,
// slots are replaced in a copy of it.

#include "vorn/host/Host.h"
#include "vorn/settings/SettingsUtils.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

namespace {

using namespace vorn::settings;
using vorn::dictionary::IDictionary;
using vorn::dictionary::Item;
using vorn::dictionary::ItemType;
using vorn::dictionary::UpdateAction;

using Lines = std::vector<std::string>;

template <class T>
std::string show(const std::optional<T>& value) {
    if (!value) {
        return "-";
    }
    if constexpr (detail::IsVector<T>::value) {
        std::string text = "[";
        for (const auto& element : *value) {
            text += (text.size() > 1 ? " " : "") + std::to_string(element);
        }
        return text + "]";
    } else {
        return std::to_string(*value);
    }
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
            std::string line = label;
            for (const Change& change : changes) {
                const bool isGone = change.type == ChangeEventType::eDestroyed;
                line += ' ' + change.path + (isGone ? "!" : "");
            }
            heard.push_back(line);
        };
    }
    DictionaryGuard makeSource() const {
        DictionaryGuard source(dictionary,
                               dictionary->createItem(nullptr, "source", ItemType::eDictionary));
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
    expectRoundTrip<uint8_t>(settings, {0, 255});
    expectRoundTrip<int16_t>(settings, {0, -32768, 32767});
    expectRoundTrip<int32_t>(settings, {0, INT32_MIN, INT32_MAX});
    expectRoundTrip<uint32_t>(settings, {0, UINT32_MAX});
    expectRoundTrip<int64_t>(settings, {0, INT64_MIN, INT64_MAX});
    expectRoundTrip<long long>(settings, {0, INT64_MIN, INT64_MAX});
    expectRoundTrip<uint64_t>(settings, {0, INT64_MAX});
    expectRoundTrip<float>(settings, {0.0f, -1.5f, 3.4e38f});
    expectRoundTrip<double>(settings, {0.0, 0.1, -INFINITY});
    expectRoundTrip<long double>(settings, {0.0L, 2.5L});
    expectRoundTrip<std::string>(settings, {"", "text", std::string(100, 'x')});
}

TEST_F(Facade, NumbersThatDoNotFitSaturate) {
    settings.set("/n", UINT64_MAX);
    EXPECT_EQ(settings.get<int64_t>("/n"), INT64_MAX);
    settings.set("/n", std::vector<uint64_t>{UINT64_MAX, 1});
    EXPECT_EQ(settings.get<std::vector<int64_t>>("/n"), (std::vector<int64_t>{INT64_MAX, 1}));

    settings.set("/n", int64_t{-1});
    EXPECT_EQ(settings.get<uint64_t>("/n"), 0u);
    EXPECT_EQ(settings.get<uint8_t>("/n"), 0u);
    settings.set("/n", int64_t{1} << 40);
    EXPECT_EQ(settings.get<int32_t>("/n"), INT32_MAX);
    EXPECT_EQ(settings.get<uint8_t>("/n"), 255u);
    settings.set("/n", std::vector<int64_t>{int64_t{1} << 32, -(int64_t{1} << 40)});
    EXPECT_EQ(settings.get<std::vector<int32_t>>("/n"),
              (std::vector<int32_t>{INT32_MAX, INT32_MIN}));

    settings.set("/n", 1e300);
    EXPECT_EQ(settings.get<float>("/n"), std::numeric_limits<float>::max());
    settings.set("/n", std::vector<double>{-1e300});
    EXPECT_EQ(settings.get<std::vector<float>>("/n"),
              std::vector<float>{std::numeric_limits<float>::lowest()});
    settings.set("/n", std::numeric_limits<long double>::max());
    EXPECT_EQ(settings.get<double>("/n"), std::numeric_limits<double>::max());
}

TEST_F(Facade, WhatIsMissingOrDoesNotConvertIsNothing) {
    settings.set("/text", "12 monkeys");
    settings.set("/number", "12");
    settings.set("/list", std::vector<std::string>{"1", "two"});
    EXPECT_EQ(settings.get<int>("/none"), std::nullopt);
    EXPECT_EQ(settings.get<int>("/text"), std::nullopt);
    EXPECT_EQ(settings.get<int>("/number"), 12);
    EXPECT_EQ(settings.get<std::string>("/list"), std::nullopt);
    EXPECT_EQ(settings.get<std::vector<int>>("/list"), std::nullopt);
    EXPECT_EQ(settings.get<std::vector<int>>("/number"), std::nullopt);
    EXPECT_EQ(settings.get("/text", 7), 7);
    EXPECT_EQ(settings.get("/number", 7), 12);
    EXPECT_EQ(settings.get<std::string>("/none", "fallback"), "fallback");
    EXPECT_EQ(settings.text("/none").view(), "");
    EXPECT_EQ(settings.text("/number").view(), "12");
}

// Only the dictionary table tells an empty array from a missing one.
TEST_F(Facade, AnEmptyArrayIsFoundWithTheDictionaryTable) {
    using Numbers = std::vector<int>;
    settings.set("/list", Numbers{1, 2});
    settings.set("/list", Numbers{});
    EXPECT_EQ(settings.get<Numbers>("/list"), Numbers{});
    EXPECT_EQ(Settings(table).get<Numbers>("/list"), std::nullopt);
    EXPECT_EQ(settings.get<Numbers>("/none"), std::nullopt);
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

TEST_F(Facade, DefaultsAreWrittenOnlyWhereNothingIs) {
    settings.set("/a", 0);
    settings.setDefault("/a", 5);
    settings.setDefault("/b", std::vector<int>{5});
    EXPECT_EQ(settings.get<int>("/a"), 0);
    EXPECT_EQ(settings.get<int>("/b/0"), 5);
}

TEST_F(Facade, ANullPathIsRefusedEverywhere) {
    const char* null = nullptr;
    settings.set(null, 1);
    settings.set(null, std::vector<int>{1});
    settings.setDefault(null, 1);
    settings.remove(null);
    settings.merge(null, makeSource().get());
    EXPECT_EQ(settings.get<int>(null), std::nullopt);
    EXPECT_EQ(settings.get<std::string>(null), std::nullopt);
    EXPECT_EQ(settings.get<std::vector<int>>(null), std::nullopt);
    EXPECT_FALSE(settings.text(null));
    EXPECT_FALSE(settings.onNodeChange(null, [](auto...) {}));
    EXPECT_FALSE(settings.onChange<int>(null, [](auto...) {}));
    EXPECT_EQ(dictionary->getItemChildCount(table->getSettingsDictionary("/")), 0u);
}

// -- what reaches the table

struct Calls {
    const ISettings* real;
    int queries = 0, subscribed = 0, transactions = 0, buffers = 0;
} g_calls;

// A copy of the table that counts queries, and what was handed out and not given back.
ISettings makeCountingTable(const ISettings* real) {
    g_calls = {real};
    ISettings counting = *real;
    counting.isAccessibleAs = [](ItemType type, const char* path) {
        ++g_calls.queries;
        return g_calls.real->isAccessibleAs(type, path);
    };
    counting.subscribeToNodeChangeEvents = [](const char* path, OnNodeChangeEventFn fn,
                                              void* data) {
        ++g_calls.subscribed;
        return g_calls.real->subscribeToNodeChangeEvents(path, fn, data);
    };
    counting.unsubscribeToChangeEvents = [](SubscriptionId* id) {
        --g_calls.subscribed;
        g_calls.real->unsubscribeToChangeEvents(id);
    };
    counting.createTransaction = [] {
        ++g_calls.transactions;
        return g_calls.real->createTransaction();
    };
    counting.destroyTransaction = [](Transaction* transaction) {
        --g_calls.transactions;
        g_calls.real->destroyTransaction(transaction);
    };
    counting.createStringBufferFromItemValue = [](const char* path) {
        ++g_calls.buffers;
        return g_calls.real->createStringBufferFromItemValue(path);
    };
    counting.destroyStringBuffer = [](const char* buffer) {
        --g_calls.buffers;
        g_calls.real->destroyStringBuffer(buffer);
    };
    return counting;
}

// Takes what make gives through every way of passing a guard on.
template <class Make>
void passOn(Make make, const int& handedOut) {
    auto first = make();
    auto second = make();
    EXPECT_EQ(handedOut, 2);
    second = std::move(first);
    EXPECT_EQ(handedOut, 1) << "what the target held is given back, what it got is not";
    auto third = std::move(second);
    auto& self = third;
    third = std::move(self);
    EXPECT_TRUE(third);
    EXPECT_EQ(handedOut, 1);
    third.reset();
    third.reset();
    EXPECT_EQ(handedOut, 0) << "once, however often it is asked";
    auto last = make();
    EXPECT_EQ(handedOut, 1);
}

TEST_F(Facade, GuardsGiveBackExactlyOnce) {
    const ISettings counting = makeCountingTable(table);
    const Settings counted(&counting);
    counted.set("/a", 1);
    passOn([&] { return counted.text("/a"); }, g_calls.buffers);
    passOn([&] { return counted.transaction(); }, g_calls.transactions);
    passOn([&] { return counted.onNodeChange("/a", [](auto...) {}); }, g_calls.subscribed);
    EXPECT_EQ(g_calls.buffers, 0);
    EXPECT_EQ(g_calls.transactions, 0);
    EXPECT_EQ(g_calls.subscribed, 0);
}

TEST_F(Facade, AReadThatFindsANumberAsksNothingElse) {
    const ISettings counting = makeCountingTable(table);
    const Settings counted(&counting);
    counted.set("/number", 5);
    counted.set("/flag", true);
    EXPECT_EQ(counted.get("/number", 0), 5);
    EXPECT_EQ(counted.get("/number", 0.0), 5.0);
    EXPECT_EQ(counted.get("/flag", false), true);
    EXPECT_EQ(g_calls.queries, 0);
}

TEST_F(Facade, AnIncompleteSubscriptionLeavesNothingBehind) {
    ISettings failing = makeCountingTable(table);
    failing.subscribeToTreeChangeEvents = [](const char*, OnTreeChangeEventFn, void*) {
        return static_cast<SubscriptionId*>(nullptr);
    };
    const Settings counted(&failing, dictionary);
    EXPECT_FALSE(counted.onChangeBatch("/a", noteBatch("batch")));
    EXPECT_FALSE(counted.onTreeChange("/a", [](auto...) {}));
    EXPECT_EQ(g_calls.subscribed, 0);
    counted.set("/a", 1);
    EXPECT_EQ(heard, Lines{});
}

// -- subscriptions

TEST_F(Facade, CallablesGetTheItemsOfTheEvent) {
    const auto node = settings.onNodeChange("a/b", [&](const Item* changed, ChangeEventType type) {
        heard.push_back("node " + settings.pathOf(changed) + std::to_string(int(type)));
    });
    const auto tree = settings.onTreeChange(
        std::string_view("/a"), [&](const Item* subtree, const Item* changed, ChangeEventType) {
            heard.push_back("tree " + settings.pathOf(subtree) + " " + settings.pathOf(changed));
        });
    settings.set("a/b", 1);
    EXPECT_EQ(takeHeard(), (Lines{"node /a/b0", "tree /a /a/b"}));
    settings.remove("a/b");
    EXPECT_EQ(takeHeard(), (Lines{"node /a/b1", "tree /a /a/b"}));
    EXPECT_EQ(settings.pathOf(table->getSettingsDictionary("/")), "/");
    EXPECT_EQ(settings.pathOf(nullptr), "");
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

TEST_F(Facade, WhatACallableThrowsReachesTheWriter) {
    const auto throwing = settings.onNodeChange("/a", [](auto...) { throw 42; });
    EXPECT_THROW(settings.set("/a", 1), int);
    const auto after = listen<int>("/b");
    settings.set("/b", 2);
    EXPECT_EQ(settings.get<int>("/a"), 1);
    EXPECT_EQ(heard, Lines{"- > 2"});
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
}

TEST_F(Facade, OnChangeTakesNotANumberForOneValue) {
    settings.set("/f", NAN);
    const auto watch = listen<double>("/f");
    settings.set("/f", NAN);
    EXPECT_EQ(takeHeard(), Lines{});
    settings.set("/f", 0.5);
    EXPECT_EQ(takeHeard().size(), 1u);
}

TEST_F(Facade, OnChangeOfANestedWriteTellsBothStepsInOrder) {
    const auto watch = settings.onChange<int>("/n", [&](auto before, auto now) {
        heard.push_back(show<int>(before) + " > " + show<int>(now));
        settings.set("/n", 10);
    });
    settings.set("/n", 1);
    EXPECT_EQ(heard, (Lines{"- > 1", "1 > 10"}));
}

TEST_F(Facade, OnChangeOfAnArrayFollowsItsElements) {
    using Numbers = std::vector<int>;
    const auto watch = listen<Numbers>("/list");
    settings.set("/list", Numbers{1, 2, 3});
    settings.set("/list", Numbers{1, 2, 3});
    EXPECT_EQ(takeHeard(), Lines{"- > [1 2 3]"}) << "one call for the whole write";
    settings.set("/list/1", 5);
    settings.set("/list/3", 4);
    EXPECT_EQ(takeHeard(), (Lines{"[1 2 3] > [1 5 3]", "[1 5 3] > [1 5 3 4]"}));
    settings.remove("/list/3");
    settings.remove("/list/0");
    EXPECT_EQ(takeHeard(), (Lines{"[1 5 3 4] > [1 5 3]", "[1 5 3] > -"})) << "then a gap";
    settings.set("/list/0", 7);
    settings.remove("/list");
    EXPECT_EQ(takeHeard(), (Lines{"- > [7 5 3]", "[7 5 3] > -"}));
    settings.set("/list", Numbers{1});
    settings.remove("/list/0");
    EXPECT_EQ(takeHeard(), (Lines{"- > [1]", "[1] > []"}));
    EXPECT_EQ(settings.get<Numbers>("/list"), Numbers{}) << "as it was told";
}

TEST_F(Facade, OnChangeKeepsUpWithSeveralWriters) {
    std::atomic<int> calls{0};
    std::atomic<int> empty{0};
    const auto watch = settings.onChange<int>("/n", [&](auto before, auto now) {
        ++calls;
        empty += before == now;
    });
    settings.set("/n", -1);
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 3; ++writer) {
        writers.emplace_back([&, writer] {
            for (int step = 0; step < 500; ++step) {
                settings.set("/n", step * 3 + writer);
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(empty, 0);
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
    settings.set("/a", std::vector<int>{1, 2});
    EXPECT_EQ(takeHeard(), Lines{"first /a /a/0 /a/1"});
}

TEST_F(Facade, AMergeAsksItsPolicyPerNode) {
    settings.set("/a/x", 100);
    int asked = 0;
    const auto policy = [&asked](const Item* dstItem, ItemType, const Item*, ItemType) {
        ++asked;
        return dstItem ? UpdateAction::eKeep : UpdateAction::eOverwrite;
    };
    settings.merge("/", makeSource().get(), policy);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(settings.get<int>("/a/x"), 100);
    EXPECT_EQ(settings.get<int>("/a/y"), 2);
    settings.set("/a/y", 200);
    settings.merge("/", makeSource().get(), vorn::dictionary::kUpdateItemKeepOriginal);
    EXPECT_EQ(settings.get<int>("/a/y"), 200);
    settings.merge("/b", settings.copy("/a").get());
    EXPECT_EQ(settings.get<int>("/b/y"), 200);
}

TEST_F(Facade, ATransactionShowsNothingBeforeItsCommit) {
    const auto watch = settings.onChangeBatch("/t", noteBatch("batch"));
    {
        TransactionGuard dropped = settings.transaction();
        dropped.set("/t/dropped", 1);
    }
    TransactionGuard transaction = settings.transaction();
    transaction.set("/t/int", UINT64_MAX);
    transaction.set(std::string_view("/t/flag!", 7), true);
    transaction.set("t/float", 0.5f);
    transaction.set("/t/text", std::string_view("view!", 4));
    EXPECT_FALSE(settings.has("/t"));
    transaction.commit();
    transaction.commit();
    EXPECT_EQ(heard, (Lines{"batch /t /t/int /t/flag /t/float /t/text",
                            "batch /t/int /t/flag /t/float /t/text"}));
    EXPECT_EQ(settings.get<int64_t>("/t/int"), INT64_MAX);
    EXPECT_EQ(settings.get<bool>("/t/flag"), true);
    EXPECT_EQ(settings.get<float>("/t/float"), 0.5f);
    EXPECT_EQ(settings.get<std::string>("/t/text"), "view");
    EXPECT_FALSE(settings.has("/t/dropped"));
    TransactionGuard empty;
    empty.set("/t/none", 1);
    empty.commit();
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

} // namespace
