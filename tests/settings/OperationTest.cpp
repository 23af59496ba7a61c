// All operations: what holds for every path, and the exact calls that each makes to the dictionary
// service, in their order.
#include "support/Store.h"

#include <regex>

using namespace foreign;

bool isNothing(const ISettings& s, const char* buffer) {
    s.destroyStringBuffer(buffer);
    return !buffer;
}

bool isNothing(const ISettings&, Item* copy) {
    if (copy) {
        RecordingDictionary::kTable.destroyItem(copy);
    }
    return !copy;
}

template <class T>
bool writesNothing(void (*read)(const char*, T*, size_t), const char* path) {
    T place = T(1);
    read(path, &place, 1);
    return place == T(1);
}

V04Transaction* g_transaction = nullptr; // for the operations that take one
const Item* g_source = nullptr;

struct Operation {
    const char* reporter; // name in messages; "-" for one that takes no path
    bool (*isNeutral)(const ISettings& s, const char* p);
    std::vector<std::pair<const char*, const char*>> calls; // by path; for short forms see expand
};

// clang-format off
#define OP(reporter, result, ...)                                                                  \
    {#reporter,                                                                                    \
     [](const ISettings& s, [[maybe_unused]] const char* p) -> bool { return (result); },          \
     {__VA_ARGS__}}

const int64_t kNumbers[] = {5000000000, -7};
const int32_t kNumber = -7;

// The settings hold n: 5, s: 'x', l: [7, 8], a: {b: {c: 1}, d: 2}, the transaction n: 6, and the
// source d: 1, new: 2.
const Operation kOperations[] = {
    OP(getItemTypeImpl, s.getItemType(p) == eCount, {"/none", "miss none; getItemType(null)"}),
    OP(isAccessibleAsImpl, !s.isAccessibleAs(eInt, p), {"x", "miss x; isAccessibleAs(int, null)"}),
    OP(setDictionaryImpl, (s.setDictionary(p), true),
       {"/a", "find a; getItemType(/a); path /a"},
       {"/n", "find n; getItemType(/n); path /n; destroyItem(/n); "
              "createItem(root, 'n', dictionary) -> /n; path /n"},
       {"p/q", "make p/q dictionary; path /p/q"}),
    OP(getAsInt64Impl, s.getAsInt64(p) == 0,
       {"/n", "find n; isAccessibleAs(int, /n); getAsInt64(/n)"},
       {"//n/", "miss /n/"},
       {"/", "getItemMutable(root, '') -> root; isAccessibleAs(int, root)"}),
    OP(setInt64Impl, (s.setInt64(p, 7), true),
       {"/p/q", "make p/q int; setInt64(/p/q, 7); path /p/q"},
       {"n", "find n; setInt64(/n, 7); path /n"}),
    OP(getAsFloat64Impl, s.getAsFloat64(p) == 0.0,
       {"n", "find n; isAccessibleAs(float, /n); getAsFloat64(/n)"}),
    OP(setFloat64Impl, (s.setFloat64(p, 1.5), true),
       {"f", "make f float; setFloat64(/f, 1.5); path /f"}),
    OP(getAsBoolImpl, !s.getAsBool(p), {"n", "find n; isAccessibleAs(bool, /n); getAsBool(/n)"}),
    OP(setBoolImpl, (s.setBool(p, true), true), {"/b", "make b bool; setBool(/b, true); path /b"}),
    OP(createBufferAsStringImpl, isNothing(s, s.createStringBufferFromItemValue(p)),
       {"/n", "find n; createStringBufferFromItemValue(/n); destroyStringBuffer('5')"}),
    OP(getStringRawImpl, !s.getStringBuffer(p),
       {"s", "find s; getItemType(/s); getStringBuffer(/s)"}),
    OP(setStringImpl, (s.setString(p, nullptr), true),
       {"/t", "make t string; setString(/t, null); path /t"}),
    OP(analyzeSharedArray, !s.isAccessibleAsArray(p)),
    OP(analyzeSharedArray, !s.isAccessibleAsArrayOf(eInt, p),
       {"/l", "walk; child 0; isAccessibleAs(int, /l/0); child 1; isAccessibleAs(int, /l/1)"}),
    OP(analyzeSharedArray, s.getArrayLength(p) == 0, {"/l", "walk; child 0; child 1"}),
    OP(getPreferredArrayTypeImpl, s.getPreferredArrayType(p) == eCount,
       {"/l", "find l; getPreferredArrayType(/l)"}),
    OP(getAsInt64AtImpl, s.getAsInt64At(p, 1) == 0,
       {"l", "find l; element 1; isAccessibleAs(int, /l/1); getAsInt64(/l/1)"}),
    OP(setInt64AtImpl, (s.setInt64At(p, 9, 3), true), {"", "make 9 int; setInt64(/9, 3); path /9"}),
    OP(getAsInt64ArrayImpl, writesNothing(s.getAsInt64Array, p)),
    OP(setInt64ArrayImpl, (s.setInt64Array(p, kNumbers, 2), true),
       {"/v", "make v dictionary; setInt64Array(/v, { 5000000000, -7 }); path /v; "
              "getItemChildCount(/v); getItemChildByIndex(/v, 0) -> /v/0; path /v/0; "
              "getItemChildByIndex(/v, 1) -> /v/1; path /v/1"}),
    OP(getAsInt32ArrayImpl, writesNothing(s.getAsIntArray, p)),
    OP(setInt32ArrayImpl, (s.setIntArray(p, &kNumber, 1), true),
       {"l", "find l; setIntArray(/l, { -7 }); path /l; getItemChildCount(/l); "
             "getItemChildByIndex(/l, 0) -> /l/0; path /l/0"}),
    OP(getAsFloat64AtImpl, s.getAsFloat64At(p, 0) == 0.0),
    OP(setFloat64AtImpl, (s.setFloat64At(p, 0, 1), true)),
    OP(getAsFloat64ArrayImpl, writesNothing(s.getAsFloat64Array, p)),
    OP(setFloat64ArrayImpl, (s.setFloat64Array(p, nullptr, 0), true),
       {"l", "empty setFloat64Array"}),
    OP(getAsFloat32ArrayImpl, writesNothing(s.getAsFloatArray, p),
       {"l", "walk; child 0; isAccessibleAs(float, /l/0); getAsFloat64(/l/0); child 1"}),
    OP(setFloat32ArrayImpl, (s.setFloatArray(p, nullptr, 0), true), {"l", "empty setFloatArray"}),
    OP(getAsBoolAtImpl, !s.getAsBoolAt(p, 0)),
    OP(setBoolAtImpl, (s.setBoolAt(p, 0, true), true),
       {"/l", "find l/0; setBool(/l/0, true); path /l/0"}),
    OP(getAsBoolArrayImpl, writesNothing(s.getAsBoolArray, p)),
    OP(setBoolArrayImpl, (s.setBoolArray(p, nullptr, 0), true), {"l", "empty setBoolArray"}),
    OP(createBufferAsStringAtImpl, isNothing(s, s.createStringBufferFromItemValueAt(p, 1)),
       {"l", "find l; find l/1; createStringBufferFromItemValue(/l/1); destroyStringBuffer('8')"}),
    OP(getStringRawAtImpl, !s.getStringBufferAt(p, 1),
       {"l", "find l; element 1; getItemType(/l/1)"}),
    OP(setStringAtImpl, (s.setStringAt(p, 0, "x"), true)),
    OP(getStringRawArrayImpl, writesNothing(s.getStringBufferArray, p)),
    OP(setStringArrayImpl, (s.setStringArray(p, nullptr, 0), true), {"/l", "empty setStringArray"}),
    OP(-, (s.destroyTransaction(s.createTransaction()), true),
       {"", "createItem(null, 'tree', dictionary) -> tree; destroyItem(tree)"}),
    OP(-, (s.commitTransaction(g_transaction), true),
       {"", "getItem(tree, null) -> tree; update(root, '', tree, null, callback, data); path /n"}),
    OP(setInt64AsyncImpl, (s.setInt64Async(g_transaction, p, 7), true),
       {"/n", "getItemMutable(tree, 'n') -> tree/n; setInt64(tree/n, 7)"}),
    OP(setFloat64AsyncImpl, (s.setFloat64Async(g_transaction, p, 1.5), true),
       {"f", "add f float; setFloat64(tree/f, 1.5)"}),
    OP(setBoolAsyncImpl, (s.setBoolAsync(g_transaction, p, true), true),
       {"/b", "add b bool; setBool(tree/b, true)"}),
    OP(setStringAsyncImpl, (s.setStringAsync(g_transaction, p, "y"), true),
       {"s", "add s string; setString(tree/s, 'y')"}),
    OP(subscribeToNodeChangeEventsImpl,
       !s.subscribeToNodeChangeEvents(p, [](auto...) {}, nullptr), {"/n", ""}),
    OP(subscribeToTreeChangeEventsImpl,
       !s.subscribeToTreeChangeEvents(p, [](auto...) {}, nullptr), {"/n", ""}),
    OP(updateImpl, (s.update(p, g_source, "", overwrite, nullptr), true),
       {"/a", "getItem(<source>, '') -> <source>; update(root, 'a', <source>, '', callback, data); "
              "up <source>/new -> <source>; path /a/d; getItem(root, 'a/new') -> /a/new"}),
    OP(updateImpl, (s.update(p, g_source, "x", nullptr, nullptr), true),
       {"/a", "getItem(<source>, 'x') -> null; update(root, 'a', <source>, 'x', callback, data)"}),
    OP(getSettingsDictionaryImpl, !s.getSettingsDictionary(p), {"/a", "getItem(root, 'a') -> /a"}),
    OP(createDictionaryFromSettingsImpl, isNothing(s, s.createDictionaryFromSettings(p)),
       {"a", "createItem(null, 'copy', dictionary) -> copy; "
             "update(copy, null, root, 'a', callback, null); destroyItem(copy)"}),
    OP(destroyItemImpl, (s.destroyItem(p), true),
       {"/none", "miss none"},
       {"/a", "find a; getItemType(/a); getItemChildCount(/a); path /a; "
              "getItemChildByIndex(/a, 1) -> /a/d; getItemChildByIndex(/a, 0) -> /a/b; "
              "getItemType(/a/b); getItemChildCount(/a/b); path /a/b; "
              "getItemChildByIndex(/a/b, 0) -> /a/b/c; getItemType(/a/b/c); path /a/b/c; "
              "getItemType(/a/d); path /a/d; destroyItem(/a)"}),
    OP(-, (s.initializeFromDictionary(g_source), true),
       {"", "update(root, null, <source>, null, callback, null)"}),
};
// clang-format on

std::string expand(std::string calls) {
    const std::pair<const char*, const char*> shortForms[] = {
        {"walk", "find l; getItemType(/l); getItemChildCount(/l)"},
        {"child (.)", "getItemChildByIndex(/l, $1) -> /l/$1; getItemName(/l/$1)"},
        {"empty (\\w+)", "find l; $1(/l, {}); path /l; getItemChildCount(/l)"},
        {"element (.)", "getItemMutable(/l, '$1') -> /l/$1"},
        {"make (\\S+) (\\w+)", "miss $1; createItem(root, '$1', $2) -> /$1"},
        {"add (.) (\\w+)",
         "getItemMutable(tree, '$1') -> null; createItem(tree, '$1', $2) -> tree/$1"},
        {"miss ([^;]+)", "getItemMutable(root, '$1') -> null"},
        {"find ([^;]+)", "getItemMutable(root, '$1') -> /$1"},
        {"path (/[\\w/]+)(/\\w+)", "up $1$2 -> $1; path $1"}, // three names at most
        {"path (/\\w+)(/\\w+)", "up $1$2 -> $1; path $1"},
        {"path (/\\w+)", "up $1 -> root"},
        {"up (\\S+)", "getItemName($1); getItemParent($1)"},
        {"root", "<ISettings root>"},
        {"tree", "<ISettings transaction>"},
        {"copy", "<full settings>"},
        {"; ", "\n"}};
    for (const auto& [form, text] : shortForms) {
        calls = std::regex_replace(calls, std::regex(form), text);
    }
    return calls;
}

class Operations : public Store {
protected:
    // What the operation calls in the world described above.
    std::string record(const Operation& operation, const char* path, bool isSubscribed) {
        const int64_t numbers[] = {7, 8};
        restart();
        settings->setInt64("/n", 5);
        settings->setString("/s", "x");
        settings->setInt64Array("/l", numbers, 2);
        settings->setInt64("/a/b/c", 1);
        settings->setInt64("/a/d", 2);
        g_transaction = settings->createTransaction();
        settings->setInt64Async(g_transaction, "n", 6);
        g_source = makeSource({{"d", 1}, {"new", 2}});
        if (isSubscribed) {
            onNode("/elsewhere", "E");
        }
        takeCalls();
        operation.isNeutral(*settings, path);
        const std::string calls = takeCalls();
        settings->destroyTransaction(g_transaction);
        return calls;
    }
    void expectStopped() {
        g_transaction = reinterpret_cast<V04Transaction*>(this); // stale, and never looked at
        g_source = makeSource({{"late", 1}});
        takeCalls();
        for (const auto& [reporter, isNeutral, calls] : kOperations) {
            EXPECT_TRUE(isNeutral(*settings, "/a")) << reporter;
            EXPECT_EQ(std::exchange(g_host.log, {}).size(), 1u) << reporter;
        }
        settings->destroyTransaction(g_transaction);
        EXPECT_EQ(takeLog(), "1 destroyTransactionImpl: the settings store is not started");
        settings->unsubscribeToChangeEvents(nullptr);
        settings->destroyStringBuffer("foreign");
        EXPECT_EQ(takeCalls(), "");
    }
};

TEST_F(Operations, MakeExactlyTheseCallsAndClimbForSubscribersOnly) {
    for (const Operation& operation : kOperations) {
        for (const auto& [path, calls] : operation.calls) {
            EXPECT_EQ(record(operation, path, true), expand(calls));
            const std::string unheard = record(operation, path, false);
            EXPECT_EQ(unheard.find("getItemParent(/"), unheard.npos) << unheard;
        }
    }
}

TEST_F(Operations, ReportANullPathOnceByOneStatementAndCallNothing) {
    takeCalls();
    for (const auto& [reporter, isNeutral, calls] : kOperations) {
        if (*reporter != '-') {
            EXPECT_TRUE(isNeutral(*settings, nullptr)) << reporter;
            EXPECT_EQ(takeLog(), "1 " + std::string(reporter) + ": nullptr is not a valid path");
            EXPECT_EQ(takeCalls(), "") << reporter;
        }
    }
    ASSERT_EQ(g_host.logPlaces.size(), 1u);
    EXPECT_TRUE(
        g_host.logPlaces.begin()->starts_with("source/plugins/vorn.settings/ISettingsImpl.cpp:"));
}

TEST_F(Operations, ThatCannotCreateStoreAndTellNothing) {
    onNodes({"/new", "/new/0", "/new/9", ""}); // the last would hear of null
    g_recorder.isCreateFailing = true;
    g_transaction = nullptr;
    g_source = nullptr;
    for (const auto& [reporter, isNeutral, calls] : kOperations) {
        isNeutral(*settings, "/new"); // the recording dictionary takes no null item
        EXPECT_EQ(dump() + takeEvents(), "{}") << reporter;
    }
}

TEST_F(Operations, OfAStoppedStoreAnswerNeutrallyWithOneError) {
    settings->setInt64("/a", 5);
    plugin.shutdown();
    expectStopped();
    plugin.unload();
    load();
    expectStopped();
    plugin.startup();
    settings->initializeFromDictionary(makeSource({{"x", 1}}));
    EXPECT_EQ(dump(), "{x:1}");
}
