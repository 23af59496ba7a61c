// Registration, start, stop, unload.
#include "support/Store.h"

using namespace foreign;

class Lifecycle : public Store {
protected:
    void SetUp() override {
        load();
    }
};
VORN_OVER_BOTH_SERVICES(Restart);

TEST_F(Lifecycle, RegistrationDescribesOneInterfaceAndAcquiresOptionalServicesOnce) {
    EXPECT_EQ(show({"framework", plugin.getFrameworkVersion()}), "framework 0.3");
    InterfaceDesc* dependency = nullptr;
    size_t count = 0;
    plugin.getDeps(&dependency, &count);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(show(*dependency), "vorn::dictionary::IDictionary 0.4");

    Lines described = {entry.name, entry.description, entry.author, entry.build};
    EXPECT_EQ(join(described, ", "), "vorn.settings.plugin, Settings storage, Vorn, dev");
    EXPECT_EQ(entry.hotReload, 0u);
    ASSERT_EQ(entry.interfaceCount, 1u);
    EXPECT_EQ(show(entry.interfaces->desc), "vorn::settings::ISettings 0.4");
    ASSERT_EQ(entry.interfaces->size, 424u);
    for (size_t i = 0; i < 53; ++i) {
        EXPECT_TRUE(static_cast<const Slot*>(entry.interfaces->ptr)[i]) << "slot " << i;
    }

    EXPECT_EQ(takeCalls(), "tryAcquire(vorn.settings.plugin, vorn::logging::Logging 0.3, null)\n"
                           "registerSource(vorn.settings.plugin)\n"
                           "tryAcquire(vorn.settings.plugin, vorn::profiler::Profiler 0.1, null)");
    RegistryEntry second{};
    plugin.registerPlugin(&g_framework, &second);
    EXPECT_EQ(takeCalls(), "");
    EXPECT_EQ(second.interfaces->ptr, settings);
}

TEST_F(Lifecycle, EveryStartUpMakesAnEmptyRootAndShutDownDestroysIt) {
    takeCalls();
    for (int round = 0; round < 3; ++round) {
        startup();
        EXPECT_EQ(takeCalls(),
                  "acquire(vorn.settings.plugin, vorn::dictionary::IDictionary 0.4, null)\n"
                  "createItem(null, '<ISettings root>', dictionary) -> <ISettings root>");
        EXPECT_EQ(dump(), "{}");
        settings->setInt64("/a/b", 1);
        settings->setInt64Async(settings->createTransaction(), "/left/open", round);
        Item* const openTree = own(g_recorder.lastRoot);
        takeCalls();
        shutdown();
        EXPECT_EQ(takeCalls(), "destroyItem(<ISettings root>)");
        EXPECT_EQ(dump(openTree), "{left: {open: " + std::to_string(round) + "}}");
    }
}

TEST_P(Restart, EndsEverySubscriptionButASecondStartUpKeepsAll) {
    onNode("/a", "N");
    Transaction* transaction = settings->createTransaction();
    settings->setInt64Async(transaction, "/a", 2);
    settings->setInt64("/b", 1);
    startup();
    settings->destroyTransaction(settings->createTransaction());
    onNode("/b", "B");
    settings->commitTransaction(transaction);
    EXPECT_EQ(dump(), "{b: 1, a: 2}");
    EXPECT_EQ(takeEvents(), "N /a");
    settings->destroyTransaction(transaction);

    const std::string longPath = "/a/path/that/is/longer/than/any/inline/buffer/of/a/string";
    onNode(longPath, "old");
    onTree("/a", "old");
    restart();
    onNode(longPath, "new");
    settings->setInt64(longPath.c_str(), 1);
    EXPECT_EQ(takeEvents(), "new " + longPath);
}

TEST_F(Lifecycle, LogThresholdStartsAtInfoAndFollowsTheService) {
    startup();
    settings->setInt64At("/list", 0, 1);
    const auto countMessages = [&] {
        settings->getAsInt64("/none");                  // verbose
        settings->getAsInt64Array("/list", nullptr, 0); // warning
        settings->getAsInt64(nullptr);                  // error
        return std::exchange(g_host.log, {}).size();
    };
    EXPECT_EQ(countMessages(), 2u) << "before the service pushed a level";
    size_t expected = 3;
    for (int32_t level : {-2, -1, 0, 1, 2}) {
        pushLogLevel(level);
        EXPECT_EQ(countMessages(), expected) << "level " << level;
        expected -= level != -1;
    }
    restart();
    EXPECT_EQ(countMessages(), 0u) << "the level outlives a restart";
}

TEST_F(Lifecycle, WithoutDictionaryOrRootTheStoreStaysStopped) {
    g_host.dictionary = nullptr;
    startup();
    const std::string log = takeLog();
    EXPECT_EQ(log.rfind("1 ", 0), 0u) << log;
    EXPECT_NE(log.find("vorn::dictionary::IDictionary"), log.npos) << log;
    settings->setInt64("/a", 1);
    shutdown();
    g_host.dictionary = dictionary;
    g_recorder.isCreateFailing = true;
    startup();
    settings->setInt64("/a", 1);
    g_recorder.isCreateFailing = false;
    restart();
    settings->setInt64("/a", 1);
    EXPECT_EQ(dump(), "{a: 1}");
}
