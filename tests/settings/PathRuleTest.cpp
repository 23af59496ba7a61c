// What holds for every operation that takes a path.
#include "support/Store.h"

#include <cstring>

using namespace foreign;

struct PathOperation {
    const char* reporter; // name in messages
    bool (*isNeutral)(const ISettings& s, const char* p, Transaction* t);
};

template <class T>
bool writesNothing(void (*read)(const char*, T*, size_t), const char* path) {
    const std::string before(sizeof(T), 1);
    std::string place = before;
    read(path, reinterpret_cast<T*>(place.data()), 1);
    return place == before;
}

#define NEUTRAL(...)                                                                               \
    [](const ISettings& s, const char* p, [[maybe_unused]] Transaction* t) -> bool {               \
        return (__VA_ARGS__);                                                                      \
    }

// clang-format off
const PathOperation kPathOperations[] = {
    {"getItemTypeImpl", NEUTRAL(s.getItemType(p) == eCount)},
    {"isAccessibleAsImpl", NEUTRAL(!s.isAccessibleAs(eInt, p))},
    {"setDictionaryImpl", NEUTRAL(s.setDictionary(p), true)},
    {"getAsInt64Impl", NEUTRAL(s.getAsInt64(p) == 0)},
    {"setInt64Impl", NEUTRAL(s.setInt64(p, 1), true)},
    {"getAsFloat64Impl", NEUTRAL(s.getAsFloat64(p) == 0.0)},
    {"setFloat64Impl", NEUTRAL(s.setFloat64(p, 1), true)},
    {"getAsBoolImpl", NEUTRAL(!s.getAsBool(p))},
    {"setBoolImpl", NEUTRAL(s.setBool(p, true), true)},
    {"createBufferAsStringImpl", NEUTRAL(!s.createStringBufferFromItemValue(p))},
    {"getStringRawImpl", NEUTRAL(!s.getStringBuffer(p))},
    {"setStringImpl", NEUTRAL(s.setString(p, "x"), true)},
    {"analyzeSharedArray", NEUTRAL(!s.isAccessibleAsArray(p))},
    {"analyzeSharedArray", NEUTRAL(!s.isAccessibleAsArrayOf(eInt, p))},
    {"analyzeSharedArray", NEUTRAL(s.getArrayLength(p) == 0)},
    {"getPreferredArrayTypeImpl", NEUTRAL(s.getPreferredArrayType(p) == eCount)},
    {"getAsInt64AtImpl", NEUTRAL(s.getAsInt64At(p, 0) == 0)},
    {"setInt64AtImpl", NEUTRAL(s.setInt64At(p, 0, 1), true)},
    {"getAsInt64ArrayImpl", NEUTRAL(writesNothing(s.getAsInt64Array, p))},
    {"setInt64ArrayImpl", NEUTRAL(s.setInt64Array(p, nullptr, 0), true)},
    {"getAsInt32ArrayImpl", NEUTRAL(writesNothing(s.getAsIntArray, p))},
    {"setInt32ArrayImpl", NEUTRAL(s.setIntArray(p, nullptr, 0), true)},
    {"getAsFloat64AtImpl", NEUTRAL(s.getAsFloat64At(p, 0) == 0.0)},
    {"setFloat64AtImpl", NEUTRAL(s.setFloat64At(p, 0, 1), true)},
    {"getAsFloat64ArrayImpl", NEUTRAL(writesNothing(s.getAsFloat64Array, p))},
    {"setFloat64ArrayImpl", NEUTRAL(s.setFloat64Array(p, nullptr, 0), true)},
    {"getAsFloat32ArrayImpl", NEUTRAL(writesNothing(s.getAsFloatArray, p))},
    {"setFloat32ArrayImpl", NEUTRAL(s.setFloatArray(p, nullptr, 0), true)},
    {"getAsBoolAtImpl", NEUTRAL(!s.getAsBoolAt(p, 0))},
    {"setBoolAtImpl", NEUTRAL(s.setBoolAt(p, 0, true), true)},
    {"getAsBoolArrayImpl", NEUTRAL(writesNothing(s.getAsBoolArray, p))},
    {"setBoolArrayImpl", NEUTRAL(s.setBoolArray(p, nullptr, 0), true)},
    {"createBufferAsStringAtImpl", NEUTRAL(!s.createStringBufferFromItemValueAt(p, 0))},
    {"getStringRawAtImpl", NEUTRAL(!s.getStringBufferAt(p, 0))},
    {"setStringAtImpl", NEUTRAL(s.setStringAt(p, 0, "x"), true)},
    {"getStringRawArrayImpl", NEUTRAL(writesNothing(s.getStringBufferArray, p))},
    {"setStringArrayImpl", NEUTRAL(s.setStringArray(p, nullptr, 0), true)},
    {"subscribeToNodeChangeEventsImpl", NEUTRAL(!s.subscribeToNodeChangeEvents(p, [](auto...) {}, nullptr))},
    {"subscribeToTreeChangeEventsImpl", NEUTRAL(!s.subscribeToTreeChangeEvents(p, [](auto...) {}, nullptr))},
    {"updateImpl", NEUTRAL(s.update(p, nullptr, nullptr, nullptr, nullptr), true)},
    {"getSettingsDictionaryImpl", NEUTRAL(!s.getSettingsDictionary(p))},
    {"createDictionaryFromSettingsImpl", NEUTRAL(!s.createDictionaryFromSettings(p))},
    {"destroyItemImpl", NEUTRAL(s.destroyItem(p), true)},
    {"setInt64AsyncImpl", NEUTRAL(s.setInt64Async(t, p, 1), true)},
    {"setFloat64AsyncImpl", NEUTRAL(s.setFloat64Async(t, p, 1), true)},
    {"setBoolAsyncImpl", NEUTRAL(s.setBoolAsync(t, p, true), true)},
    {"setStringAsyncImpl", NEUTRAL(s.setStringAsync(t, p, "x"), true)},
};
// clang-format on

class PathRule : public RecordedStore {};

TEST_F(PathRule, NullIsReportedOnceByOneStatementAndReachesNoDictionary) {
    Transaction* transaction = settings->createTransaction();
    takeCalls();
    for (const auto& [reporter, isNeutral] : kPathOperations) {
        EXPECT_TRUE(isNeutral(*settings, nullptr, transaction)) << reporter;
        EXPECT_EQ(takeLog(), "1 " + std::string(reporter) + ": nullptr is not a valid path");
        EXPECT_EQ(takeCalls(), "") << reporter;
    }
    ASSERT_EQ(g_host.logPlaces.size(), 1u);
    EXPECT_EQ(g_host.logPlaces.begin()->rfind("source/plugins/vorn.settings/ISettingsImpl.cpp:", 0),
              0u);
    settings->destroyTransaction(transaction);
}

TEST_F(PathRule, StoppedStoreAnswersNeutrallyWithOneError) {
    const auto expectStopped = [&] {
        takeCalls();
        for (const auto& [reporter, isNeutral] : kPathOperations) {
            EXPECT_TRUE(isNeutral(*settings, "/a", nullptr)) << reporter;
            // Without a transaction there is nothing to write to in the first place.
            const size_t count = std::exchange(g_host.log, {}).size();
            EXPECT_TRUE(count == 1 || (count == 0 && strstr(reporter, "Async"))) << reporter;
        }
        EXPECT_EQ(settings->createTransaction(), nullptr);
        settings->destroyTransaction(nullptr);
        settings->commitTransaction(nullptr);
        settings->unsubscribeToChangeEvents(nullptr);
        settings->destroyStringBuffer("foreign");
        settings->initializeFromDictionary(makeSource({{"late", 1}}));
        EXPECT_EQ(takeCalls(), "");
        g_host.log.clear();
    };
    settings->setInt64("/a", 5);
    shutdown();
    expectStopped();
    plugin.unload();
    load();
    expectStopped();
    startup();
    settings->initializeFromDictionary(makeSource({{"x", 1}}));
    EXPECT_EQ(dump(), "{x: 1}");
}
