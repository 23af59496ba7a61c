// Memory that runs out: every operation of both tables that may need some, registration, start-up
// and shut-down, with its first allocation failing, then its second, until it needs no more; each
// once and for ever.
//
// Whatever fails, the trees are then as before the operation or as after it, the same operation
// done again succeeds, subscribers still hear of changes, and nothing is left behind after unload.
#include "World.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <numeric>

namespace reliability {
namespace {

enum class Stage { eLoaded, eRegistered, eEmpty, eFilled }; // each one step after the other

struct Row {
    const char* name;
    std::function<std::string(World&)> operate; // answers with its result
    Stage stage = Stage::eFilled;               // of the world when it begins
    std::string half = {}; // what a failure may leave in the tree, or take from it, where one
                           // operation of the store is two of the service
};

// Rows for a call that has no result, one that has, and one that makes a text.
#define CALL(call, ...)                                                                            \
    Row {                                                                                          \
        .name = #call, .operate = [](World& w) { return call, ""; }, __VA_ARGS__                   \
    }
#define READ(call, ...)                                                                            \
    Row {                                                                                          \
        .name = #call, .operate = [](World& w) { return testing::PrintToString(call); },           \
        __VA_ARGS__                                                                                \
    }
#define TAKE(table, call) READ(take(call, table->destroyStringBuffer))

std::string take(const char* buffer, void (*giveBack)(const char*)) {
    const std::string text = buffer ? buffer : "null";
    giveBack(buffer);
    return text;
}

std::string take(const World& w, Item* root) {
    const std::string text = w.show(root);
    w.d->destroyItem(root);
    return text;
}

// What a new subscription hears of one change.
std::string hearOnce(World& w, SubscriptionId* subscription) {
    const size_t before = w.changesHeard;
    const auto unsubscribe = [&](SubscriptionId* id) { w.s->unsubscribeToChangeEvents(id); };
    const std::unique_ptr<SubscriptionId, decltype(unsubscribe)> id(subscription, unsubscribe);
    w.s->setInt64("/other/node", 1);
    return id ? std::to_string(w.changesHeard - before) : "null";
}

constexpr size_t kLength = 20;
template <class T>
constexpr T kWritten[kLength] = {1};
const char* const kTexts[] = {kText, "b", kText};

// Enough items for a second block of them, and for tables to grow. VORN_MANY_ITEMS sets how many.
const std::vector<int64_t> kMany = [] {
    std::vector<int64_t> numbers(countFor("VORN_MANY_ITEMS", 17000));
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}();
size_t manyFor(const World& w, size_t share = 1) {
    return w.isOwnDictionary ? kMany.size() / share : kLength;
}

void makeMany(World& w) {
    Item* many = w.d->createItem(w.source, "many", ItemType::eDictionary);
    w.d->setInt64Array(many, kMany.data(), manyFor(w, 8));
}

// What may need memory in the store. Of scalar writes, integers and texts stand for all types.
const Row kRows[] = {
    CALL(w.registerPlugins(), .stage = Stage::eLoaded),
    CALL(w.startUp(), .stage = Stage::eRegistered),
    CALL(w.startUp()), // without a shut-down before it
    CALL(w.s->setDictionary("/new/way")),
    CALL(w.s->setInt64("/new/way", 1)),
    CALL((w.subscribeMany(), w.s->setInt64("/a/probe", 1))),
    TAKE(w.s, w.s->createStringBufferFromItemValue("/a/text")),
    CALL(w.s->setString("/a/text", kText)),
    CALL(w.s->setString("/a/list/1", kText)),
    CALL(w.s->setString("/a/new", kText)),
    CALL(w.s->setString("/a/way/on/text", kText), .half = " way:{on:{}}"),
    READ(w.s->getArrayLength("/back")),
    CALL(w.s->setInt64At("/some/way/to/a/node/of/a/long/path", 100, 1)),
    CALL(w.s->setInt64Array("/a/list", kWritten<int64_t>, kLength)),
    CALL(w.s->setInt64Array("/a/many", kMany.data(), manyFor(w))),
    CALL(w.s->setIntArray("/a/text", kWritten<int32_t>, kLength)),
    CALL(w.s->setFloat64Array("/a/new", kWritten<double>, kLength)),
    CALL(w.s->setFloatArray("/a/bool", kWritten<float>, kLength)),
    CALL(w.s->setBoolArray("/a/list", kWritten<bool>, 2)),
    TAKE(w.s, w.s->createStringBufferFromItemValueAt("/a/list", 1)),
    CALL(w.s->setStringAt("/a/list", 3, kText)),
    CALL(w.s->setStringArray("/a/list", kTexts, 3)),
    CALL(w.s->setStringArray("/a/way/texts", kTexts, 3), .half = " way:{}"),
    CALL(w.s->destroyTransaction(w.s->createTransaction()), .stage = Stage::eEmpty),
    CALL(w.s->commitTransaction(w.transaction)),
    CALL(w.s->setInt64Async(w.transaction, "/async/number", 1)),
    CALL(w.s->setStringAsync(w.transaction, "/async text", kText)),
    READ(hearOnce(w, w.s->subscribeToNodeChangeEvents("/other/node", &World::hearNode, &w)),
         .stage = Stage::eEmpty),
    READ(hearOnce(w, w.s->subscribeToTreeChangeEvents("/other", &World::hearTree, &w))),
    CALL(w.s->update("/", w.source, nullptr, nullptr, nullptr)),
    CALL(w.s->update("/a/text/below", w.source, "a", nullptr, nullptr)),
    CALL((makeMany(w), w.s->update("/m", w.source, "many", nullptr, nullptr))),
    READ(take(w, w.s->createDictionaryFromSettings("/a"))),
    CALL(w.s->destroyItem("/a/list")),
    CALL(w.s->initializeFromDictionary(w.source)),
    CALL(w.shutDown()),
};

// And in the service.
const Row kDictionaryRows[] = {
    CALL(w.d->createItem(w.plain, "a/new/way", ItemType::eString)),
    CALL(w.d->createItem(w.plain, "a/list/new/way", ItemType::eInt)),
    READ(take(w, w.d->createItem(nullptr, kText, ItemType::eDictionary))),
    TAKE(w.d, w.d->createStringBufferFromItemName(w.plain)),
    TAKE(w.d, w.d->createStringBufferFromItemValue(w.value("a/list"))),
    CALL(w.d->setString(w.value("a/float"), kText)),
    CALL(w.d->setInt64At(w.value("a/list"), 0, 1)),
    CALL(w.d->setFloat64At(w.value("a/list"), 0, 1.5)),
    CALL(w.d->setBoolAt(w.value("a/list"), 0, true)),
    CALL(w.d->setStringAt(w.value("a/list"), 0, kText)),
    CALL(w.d->setInt64Array(w.plain, kWritten<int64_t>, kLength)),
    CALL(w.d->setIntArray(w.plain, kWritten<int32_t>, kLength)),
    CALL(w.d->setFloat64Array(w.plain, kWritten<double>, kLength)),
    CALL(w.d->setFloatArray(w.plain, kWritten<float>, kLength)),
    CALL(w.d->setBoolArray(w.plain, kWritten<bool>, kLength)),
    CALL(w.d->setStringArray(w.plain, kTexts, 3)),
    CALL(w.d->update(w.plain, "way/to", w.source, nullptr, nullptr, nullptr)),
    CALL(w.d->update(w.plain, "a", w.plain, nullptr, nullptr, nullptr)),
    CALL(w.d->update(w.plain, "a/text/made/a dictionary/on", w.plain, "a", nullptr, nullptr)),
};

void bringTo(World& w, Stage stage) {
    constexpr void (World::*kSteps[])() = {&World::registerPlugins, &World::startUp, &World::fill};
    for (size_t count = 0; count < static_cast<size_t>(stage); ++count) {
        const auto step = kSteps[count];
        (w.*step)();
    }
    w.changesHeard = 0;
}

std::string without(std::string text, const std::string& part) {
    const size_t place = part.empty() ? text.npos : text.find(part);
    return place == text.npos ? text : text.erase(place, part.size());
}

// How a row goes when there is memory.
struct Outcome {
    Outcome(const Row& row, bool isOwn) {
        World w(isOwn);
        bringTo(w, row.stage);
        before = w.show();
        result = row.operate(w);
        after = w.show();
    }
    std::string before, result, after;
};

void expectBeforeOrAfter(World& w, const Row& row, const Outcome& usual) {
    const auto& [before, result, after] = usual;
    const std::string left = w.show();
    EXPECT_TRUE(left == before || left == after || without(left, row.half) == before ||
                left == without(before, row.half))
        << left << "\nis neither\n"
        << before << "\nnor\n"
        << after;
    EXPECT_TRUE(left != before || before == after || w.changesHeard == 0)
        << "a change was told that is not there";
    if (left != after || before == after) {
        EXPECT_EQ(row.operate(w), result);
        EXPECT_EQ(w.show(), after);
    }
}

void expectUsable(World& w) {
    if (!w.source) {
        bringTo(w, Stage::eFilled);
    }
    w.s->setDictionary("/a");
    w.s->subscribeToNodeChangeEvents("/a/probe", &World::hearNode, &w);
    w.changesHeard = 0;
    w.s->setString("/a/probe", kText);
    EXPECT_GT(w.changesHeard, 0u);
    EXPECT_STREQ(w.s->getStringBuffer("/a/probe"), kText);
}

// Lets the n-th allocation fail; false when the operation does not need that many.
bool isFailing(const Row& row, size_t n, bool isForEver, bool isOwn, const Outcome& usual) {
    SCOPED_TRACE("allocation " + std::to_string(n));
    size_t failed = 0;
    {
        World w(isOwn);
        bringTo(w, row.stage);
        foreign::g_host.log.clear();
        failAllocation(n, isForEver);
        try {
            row.operate(w);
        } catch (const std::bad_alloc&) {
            // the caller may get to know it
        }
        failed = stopFailing();
        for (const std::string& line : std::exchange(foreign::g_host.log, {})) {
            EXPECT_TRUE(line == "1 Failed to allocate memory!" ||
                        line == "1 vornOnPluginStartup: cannot create the settings root")
                << line;
        }
        expectBeforeOrAfter(w, row, usual);
        expectUsable(w);
    }
    EXPECT_EQ(countLiveAllocations(), 0u);
    EXPECT_EQ(foreign::g_recorder.items.size() + foreign::g_recorder.buffers.size(), 0u);
    return failed > 0;
}

template <size_t count>
void exhaust(const Row (&rows)[count], bool isOwn) {
    size_t failures = 0;
    for (const Row& row : rows) {
        for (const bool isForEver : {false, true}) {
            SCOPED_TRACE(std::string(row.name) + (isForEver ? ", for ever" : ", once"));
            const Outcome usual(row, isOwn);
            size_t n = 1;
            while (isFailing(row, n, isForEver, isOwn, usual) && !testing::Test::HasFailure()) {
                ++n;
            }
            failures += n - 1;
        }
    }
    std::printf("%zu operations, %zu allocations failed\n", count, failures);
    EXPECT_GT(failures, count);
}

TEST(Exhausted, AnOperationOfTheStoreHappensWhollyOrNotAtAll) {
    exhaust(kRows, true);
}

TEST(Exhausted, AnOperationOfTheStoreOverAnotherServiceDoesToo) {
    exhaust(kRows, false);
}

TEST(Exhausted, AnOperationOfTheServiceDoesToo) {
    exhaust(kDictionaryRows, true);
}

TEST(Locks, ThatCannotBeTakenAreToldToTheCaller) {
    World w(true);
    bringTo(w, Stage::eFilled);
    failLocks(true);
    EXPECT_THROW(w.s->setInt64At("/some/way/to/a/node/of/a/long/path", 1, 1), std::system_error);
    failLocks(false);
}

} // namespace
} // namespace reliability
