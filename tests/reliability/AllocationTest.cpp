// Memory that runs out: every operation of both tables, registration, start-up and shut-down, with
// its first allocation failing, then its second, until it needs no more; each once and for ever.
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

enum class Stage { eLoaded, eRegistered, eEmpty, eFilled };

// One operation. half is what a failure may leave in the tree, or take from it, where one operation
// of the store is two of the service; nothing where the row says nothing.
struct Row {
    const char* name;
    std::function<std::string(World&)> operate; // answers with its result
    std::string half = {};
    std::function<void(World&)> prepare = {};
    Stage stage = Stage::eFilled;
};

std::string take(const char* buffer, const std::function<void(const char*)>& giveBack) {
    const std::string text = buffer ? buffer : "null";
    giveBack(buffer);
    return text;
}

template <class Subscribe>
std::string hearOnce(World& w, Subscribe subscribe) {
    size_t before = w.changesHeard;
    const auto unsubscribe = [&](SubscriptionId* id) { w.s->unsubscribeToChangeEvents(id); };
    std::unique_ptr<SubscriptionId, decltype(unsubscribe)> id(subscribe(), unsubscribe);
    w.s->setInt64("/other/node", 1);
    return id ? std::to_string(w.changesHeard - before) : "null";
}

// A row for a call that has no result.
#define CALL(name, ...)                                                                            \
    Row {                                                                                          \
        name, [](World& w) -> std::string {                                                        \
            __VA_ARGS__;                                                                           \
            return "";                                                                             \
        }                                                                                          \
    }
#define READ(name, ...)                                                                            \
    Row {                                                                                          \
        name, [](World& w) { return testing::PrintToString(__VA_ARGS__); }                         \
    }
#define TAKE(name, table, ...)                                                                     \
    Row {                                                                                          \
        name, [](World& w) { return take(__VA_ARGS__, w.table->destroyStringBuffer); }             \
    }

const std::vector<int64_t> kInts(20, 4);
const std::vector<int32_t> kInt32s(20, 4);
const std::vector<double> kFloats(20, 4.5);
const std::vector<float> kFloat32s(20, 4.5F);
const bool kBools[20] = {true};
const char* const kTexts[] = {kText, "b", kText};
int64_t g_ints[20];
int32_t g_int32s[20];
double g_floats[20];
float g_float32s[20];
bool g_bools[20];
const char* g_texts[20];

// Enough items for a second block of them, and for tables to grow. VORN_MANY_ITEMS sets how many.
const std::vector<int64_t> kMany = [] {
    std::vector<int64_t> numbers(countFor("VORN_MANY_ITEMS", 17000));
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}();

const Row kRows[] = {
    {"registration", [](World& w) { return w.registerPlugins(), ""; }, {}, {}, Stage::eLoaded},
    {"start-up", [](World& w) { return w.startUp(), ""; }, {}, {}, Stage::eRegistered},
    CALL("start-up without shut-down", w.startUp()),
    READ("getItemType", w.s->getItemType("/a/text")),
    READ("isAccessibleAs", w.s->isAccessibleAs(ItemType::eString, "/a/text")),
    CALL("setDictionary", w.s->setDictionary("/new/way")),
    CALL("setDictionary over a value", w.s->setDictionary("/a/text")),
    {"setDictionary over a value of a long name",
     [](World& w) { return w.s->setDictionary("/a/a name of many letters"), ""; },
     " a name of many letters:1"},
    {"setDictionary over a value at the root",
     [](World& w) { return w.s->setDictionary("/"), ""; },
     {},
     [](World& w) { w.s->setInt64("/", 1); }},
    READ("getAsInt64", w.s->getAsInt64("/a/list/0")),
    CALL("setInt64", w.s->setInt64("/new/way", 1)),
    CALL("setInt64 over a dictionary", w.s->setInt64("/a", 1)),
    CALL("setInt64 with many subscribers", w.subscribeMany(); w.s->setInt64("/a/probe", 1)),
    READ("getAsFloat64", w.s->getAsFloat64("/a/float")),
    CALL("setFloat64", w.s->setFloat64("/a/list/0", 1.5)),
    READ("getAsBool", w.s->getAsBool("/a/bool")),
    CALL("setBool", w.s->setBool("/a/a new name of many letters", true)),
    TAKE("createStringBufferFromItemValue",
         s,
         w.s->createStringBufferFromItemValue("/a/text")),
    READ("getStringBuffer", std::string(w.s->getStringBuffer("/a/text"))),
    CALL("setString", w.s->setString("/a/text", kText)),
    CALL("setString over a number", w.s->setString("/a/list/1", kText)),
    CALL("setString creating", w.s->setString("/a/new", kText)),
    {"setString creating a way",
     [](World& w) { return w.s->setString("/a/way/on/text", kText), ""; },
     " way:{on:{}}"},
    READ("isAccessibleAsArray", w.s->isAccessibleAsArray("/a/list")),
    READ("isAccessibleAsArrayOf", w.s->isAccessibleAsArrayOf(ItemType::eInt, "/a/list")),
    {"getArrayLength",
     [](World& w) { return std::to_string(w.s->getArrayLength("/back")); },
     {},
     [](World& w) {
         for (const char* path : {"/back/2", "/back/1", "/back/0"}) {
             w.s->setInt64(path, 1);
         }
     }},
    READ("getPreferredArrayType", w.s->getPreferredArrayType("/a/list")),
    READ("getAsInt64At", w.s->getAsInt64At("/a/list", 1)),
    CALL("setInt64At", w.s->setInt64At("/some/way/to/a/node/of/a/long/path", 100, 1)),
    CALL("getAsInt64Array", w.s->getAsInt64Array("/a/list", g_ints, 20)),
    CALL("setInt64Array", w.s->setInt64Array("/a/list", kInts.data(), 20)),
    CALL("setInt64Array of many",
         w.s->setInt64Array("/a/many", kMany.data(), w.isOwnDictionary ? kMany.size() : 20)),
    CALL("getAsIntArray", w.s->getAsIntArray("/a/list", g_int32s, 20)),
    CALL("setIntArray", w.s->setIntArray("/a/text", kInt32s.data(), 20)),
    READ("getAsFloat64At", w.s->getAsFloat64At("/a/list", 1)),
    CALL("setFloat64At", w.s->setFloat64At("/a/list", 1, 1.5)),
    CALL("getAsFloat64Array", w.s->getAsFloat64Array("/a/list", g_floats, 20)),
    CALL("setFloat64Array", w.s->setFloat64Array("/a/new", kFloats.data(), 20)),
    CALL("getAsFloatArray", w.s->getAsFloatArray("/a/list", g_float32s, 20)),
    CALL("setFloatArray", w.s->setFloatArray("/a/bool", kFloat32s.data(), 20)),
    READ("getAsBoolAt", w.s->getAsBoolAt("/a/list", 1)),
    CALL("setBoolAt", w.s->setBoolAt("/a/list", 3, true)),
    CALL("getAsBoolArray", w.s->getAsBoolArray("/a/list", g_bools, 20)),
    CALL("setBoolArray", w.s->setBoolArray("/a/list", kBools, 2)),
    TAKE("createStringBufferFromItemValueAt",
         s,
         w.s->createStringBufferFromItemValueAt("/a/list", 1)),
    READ("getStringBufferAt", w.s->getStringBufferAt("/a/list", 1)),
    {"setStringAt", [](World& w) { return w.s->setStringAt("/a/list", 3, kText), ""; }},
    CALL("getStringBufferArray", w.s->getStringBufferArray("/a/list", g_texts, 20)),
    CALL("setStringArray", w.s->setStringArray("/a/list", kTexts, 3)),
    {"setStringArray creating a way",
     [](World& w) { return w.s->setStringArray("/a/way/texts", kTexts, 3), ""; },
     " way:{}"},
    {"createTransaction",
     [](World& w) {
         Transaction* transaction = w.s->createTransaction();
         w.s->destroyTransaction(transaction);
         return transaction ? "made" : "null";
     },
     {},
     {},
     Stage::eEmpty},
    CALL("destroyTransaction", w.s->destroyTransaction(nullptr)),
    CALL("commitTransaction", w.s->commitTransaction(w.transaction)),
    CALL("setInt64Async", w.s->setInt64Async(w.transaction, "/async/number", 1)),
    CALL("setFloat64Async", w.s->setFloat64Async(w.transaction, "/a/float", 1.5)),
    CALL("setBoolAsync", w.s->setBoolAsync(w.transaction, "/a/bool", true)),
    CALL("setStringAsync", w.s->setStringAsync(w.transaction, "/async text", kText)),
    {"subscribeToNodeChangeEvents",
     [](World& w) {
         return hearOnce(w, [&] {
             return w.s->subscribeToNodeChangeEvents("/other/node", &World::hearNode, &w);
         });
     },
     {},
     {},
     Stage::eEmpty},
    {"subscribeToTreeChangeEvents",
     [](World& w) {
         return hearOnce(w, [&] {
             return w.s->subscribeToTreeChangeEvents("/other", &World::hearTree, &w);
         });
     }},
    CALL("unsubscribeToChangeEvents", w.s->unsubscribeToChangeEvents(nullptr)),
    CALL("update", w.s->update("/", w.source, nullptr, nullptr, nullptr)),
    CALL("update below a value", w.s->update("/a/text/below", w.source, "a", nullptr, nullptr)),
    {"update of many",
     [](World& w) { return w.s->update("/m", w.source, "many", nullptr, nullptr), ""; },
     {},
     [](World& w) {
         Item* many = w.d->createItem(w.source, "many", ItemType::eDictionary);
         w.d->setInt64Array(many, kMany.data(), w.isOwnDictionary ? kMany.size() / 8 : 20);
     }},
    READ("getSettingsDictionary", w.s->getSettingsDictionary("/a") != nullptr),
    {"createDictionaryFromSettings",
     [](World& w) {
         Item* copy = w.s->createDictionaryFromSettings("/a");
         const std::string text = w.show(copy);
         w.d->destroyItem(copy);
         return text;
     }},
    CALL("destroyItem", w.s->destroyItem("/a/list")),
    CALL("destroyStringBuffer", w.s->destroyStringBuffer(nullptr)),
    CALL("initializeFromDictionary", w.s->initializeFromDictionary(w.source)),
    CALL("shut-down", w.shutDown()),
};

// Those of the dictionary table that may need memory.
const Row kDictionaryRows[] = {
    CALL("createItem", w.d->createItem(w.plain, "a/new/way", ItemType::eString)),
    CALL("createItem below a value", w.d->createItem(w.plain, "a/list/new/way", ItemType::eInt)),
    CALL("createItem with another type", w.d->createItem(w.plain, "a/list", ItemType::eString)),
    {"createItem without a parent",
     [](World& w) {
         Item* root = w.d->createItem(nullptr, kText, ItemType::eDictionary);
         w.d->destroyItem(root);
         return root ? "made" : "null";
     }},
    TAKE("createStringBufferFromItemName", d, w.d->createStringBufferFromItemName(w.plain)),
    TAKE("createStringBufferFromItemValue",
         d,
         w.d->createStringBufferFromItemValue(w.d->getItem(w.plain, "a/list"))),
    TAKE(
        "createStringBufferFromItemValueAt", d, w.d->createStringBufferFromItemValueAt(w.plain, 0)),
    CALL("setString", w.d->setString(w.d->getItemMutable(w.plain, "a/float"), kText)),
    CALL("setInt64At", w.d->setInt64At(w.value(), 0, 1)),
    CALL("setFloat64At", w.d->setFloat64At(w.value(), 0, 1.5)),
    CALL("setBoolAt", w.d->setBoolAt(w.value(), 0, true)),
    CALL("setStringAt", w.d->setStringAt(w.value(), 0, kText)),
    CALL("setInt64Array", w.d->setInt64Array(w.plain, kInts.data(), 20)),
    CALL("setIntArray", w.d->setIntArray(w.plain, kInt32s.data(), 20)),
    CALL("setFloat64Array", w.d->setFloat64Array(w.plain, kFloats.data(), 20)),
    CALL("setFloatArray", w.d->setFloatArray(w.plain, kFloat32s.data(), 20)),
    CALL("setBoolArray", w.d->setBoolArray(w.plain, kBools, 20)),
    CALL("setStringArray", w.d->setStringArray(w.plain, kTexts, 3)),
    CALL("update", w.d->update(w.plain, "way/to", w.source, nullptr, nullptr, nullptr)),
    CALL("update in one tree", w.d->update(w.plain, "a", w.plain, nullptr, nullptr, nullptr)),
    CALL("update below a value",
         w.d->update(w.plain, "a/text/made/a dictionary/on", w.plain, "a", nullptr, nullptr)),
};

void prepare(World& w, const Row& row) {
    if (row.stage >= Stage::eRegistered) {
        w.registerPlugins();
    }
    if (row.stage >= Stage::eEmpty) {
        w.startUp();
    }
    if (row.stage >= Stage::eFilled) {
        w.fill();
    }
    if (row.prepare) {
        row.prepare(w);
    }
    w.changesHeard = 0;
}

std::string without(std::string text, const std::string& part) {
    const size_t place = part.empty() ? text.npos : text.find(part);
    return place == text.npos ? text : text.erase(place, part.size());
}

class Exhausted : public testing::TestWithParam<bool> {
protected:
    template <size_t count>
    void run(const Row (&rows)[count]) {
        size_t points = 0;
        for (const Row& row : rows) {
            for (const bool isForEver : {false, true}) {
                SCOPED_TRACE(std::string(row.name) + (isForEver ? ", for ever" : ", once"));
                points += runRow(row, isForEver);
            }
        }
        std::printf("%zu operations, %zu allocations failed\n", count, points);
        EXPECT_GT(points, count);
    }

private:
    // How many allocations the operation needs.
    size_t runRow(const Row& row, bool isForEver) {
        std::string before, after, result;
        {
            World clean(GetParam());
            prepare(clean, row);
            before = clean.show();
            result = row.operate(clean);
            after = clean.show();
        }
        size_t n = 0;
        while (!HasFailure() && isFailing(row, ++n, isForEver, before, after, result)) {
        }
        return n - 1;
    }

    // Lets the n-th allocation fail; false when the operation does not need that many.
    bool isFailing(const Row& row,
                   size_t n,
                   bool isForEver,
                   const std::string& before,
                   const std::string& after,
                   const std::string& result) {
        SCOPED_TRACE("allocation " + std::to_string(n));
        size_t failed = 0;
        {
            World w(GetParam());
            prepare(w, row);
            foreign::g_host.log.clear();
            failAllocation(n, isForEver);
            try {
                row.operate(w);
            } catch (const std::bad_alloc&) {
                // the caller may get to know it
            }
            failed = stopFailing();
            const foreign::Lines log = std::exchange(foreign::g_host.log, {});
            const std::string left = w.show();
            EXPECT_TRUE(left == before || left == after || without(left, row.half) == before ||
                        left == without(before, row.half))
                << left << "\nis neither\n"
                << before << "\nnor\n"
                << after;
            EXPECT_TRUE(left != before || before == after || w.changesHeard == 0)
                << "a change was told that is not there";
            for (const std::string& line : log) {
                EXPECT_TRUE(line == "1 Failed to allocate memory!" ||
                            line == "1 vornOnPluginStartup: cannot create the settings root")
                    << line;
            }
            if (left != after || before == after) {
                EXPECT_EQ(row.operate(w), result);
                EXPECT_EQ(w.show(), after);
            }
            expectUsable(w);
        }
        EXPECT_EQ(countLiveAllocations(), 0u);
        EXPECT_EQ(foreign::g_recorder.items.size() + foreign::g_recorder.buffers.size(), 0u);
        return failed > 0;
    }

    static void expectUsable(World& w) {
        if (!w.source) {
            w.registerPlugins();
            w.startUp();
            w.fill();
        }
        w.s->setDictionary("/a");
        w.s->subscribeToNodeChangeEvents("/a/probe", &World::hearNode, &w);
        w.changesHeard = 0;
        w.s->setString("/a/probe", kText);
        EXPECT_GT(w.changesHeard, 0u);
        EXPECT_STREQ(w.s->getStringBuffer("/a/probe"), kText);
    }
};

TEST_P(Exhausted, AnOperationOfTheStoreHappensWhollyOrNotAtAll) {
    run(kRows);
}

TEST_P(Exhausted, AnOperationOfTheServiceHappensWhollyOrNotAtAll) {
    if (GetParam()) {
        run(kDictionaryRows);
    }
}

TEST(Locks, ThatCannotBeTakenAreToldToTheCaller) {
    World w(true);
    prepare(w, {"", {}});
    failLocks(true);
    EXPECT_THROW(w.s->setInt64At("/some/way/to/a/node/of/a/long/path", 1, 1), std::system_error);
    failLocks(false);
}

INSTANTIATE_TEST_SUITE_P(Service, Exhausted, testing::Bool(), [](const auto& info) {
    return info.param ? "own" : "recording";
});

} // namespace
} // namespace reliability
