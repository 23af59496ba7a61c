// Registration, start, stop, unload.
#include "support/Store.h"

using namespace foreign;

VORN_OVER_BOTH_SERVICES(Restart);
class Lifecycle : public Store {};

const std::string kStartUpCalls =
    "acquire(vorn.settings.plugin, vorn::dictionary::IDictionary 0.4, null)\n"
    "createItem(null, '<ISettings root>', dictionary) -> <ISettings root>";

TEST_F(Lifecycle, RegistrationDescribesOneInterfaceAndAcquiresOptionalServicesOnce) {
    EXPECT_EQ(show({"framework", plugin.getFrameworkVersion()}), "framework 0.3");
    V04InterfaceDesc* dependency = nullptr;
    size_t count = 0;
    plugin.getDeps(&dependency, &count);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(show(*dependency), "vorn::dictionary::IDictionary 0.4");
    const auto& [impl, interfaces, interfaceCount] = plugin.entry;
    const Lines described = {impl.name, impl.description, impl.author, impl.build};
    EXPECT_EQ(join(described, ", "), "vorn.settings.plugin, Settings storage, Vorn, dev");
    EXPECT_EQ(impl.hotReload, 0u);
    ASSERT_EQ(interfaceCount, 1u);
    EXPECT_EQ(show(interfaces->desc), "vorn::settings::ISettings 0.4");
    EXPECT_EQ(interfaces->size, sizeof(ISettings));
    EXPECT_EQ(takeCalls(),
              "tryAcquire(vorn.settings.plugin, vorn::logging::Logging 0.3, null)\n"
              "registerSource(vorn.settings.plugin)\n"
              "tryAcquire(vorn.settings.plugin, vorn::profiler::Profiler 0.1, null)\n" +
                  kStartUpCalls);
    EXPECT_EQ(plugin.offer<ISettings>(), settings);
    EXPECT_EQ(takeCalls(), "");
}

TEST_F(Lifecycle, ShutDownDestroysTheRootAndLeavesOpenTransactions) {
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(dump(), "{}");
        settings->setInt64("/a/b", 1);
        V04Transaction* const open = settings->createTransaction();
        settings->setInt64Async(open, "/left/open", round);
        Item* const openTree = own(*reinterpret_cast<Item**>(open));
        takeCalls();
        plugin.shutdown();
        EXPECT_EQ(takeCalls(), "destroyItem(<ISettings root>)");
        EXPECT_EQ(dump(openTree), "{left:{open:" + std::to_string(round) + "}}");
        plugin.startup();
        EXPECT_EQ(takeCalls(), kStartUpCalls);
    }
}

TEST_P(Restart, EndsEverySubscriptionButASecondStartUpKeepsAll) {
    const std::string path = "/a/" + std::string(100, 'n');
    V04Transaction* transaction = settings->createTransaction();
    settings->setInt64Async(transaction, path.c_str(), 2);
    onNode(path, "N");
    onTree("/a", "T");
    plugin.startup();
    settings->commitTransaction(transaction);
    EXPECT_EQ(takeEvents(), "N " + path + ", T /a:" + path);
    settings->destroyTransaction(transaction);
    restart();
    onNode(path, "new");
    settings->setInt64(path.c_str(), 1);
    EXPECT_EQ(takeEvents(), "new " + path);
}

TEST_F(Lifecycle, LogThresholdStartsAtInfoAndFollowsTheService) {
    const auto countMessages = [&] {
        settings->setInt64At("/list", 0, 1);
        settings->getAsInt64("/none");                  // verbose
        settings->getAsInt64Array("/list", nullptr, 0); // warning
        settings->getAsInt64(nullptr);                  // error
        return std::exchange(g_host.log, {}).size();
    };
    for (const auto& [level, expected] : {std::pair(-2, 3u), {-1, 2}, {0, 2}, {1, 1}, {2, 0}}) {
        pushLogLevel(level);
        EXPECT_EQ(countMessages(), expected) << "level " << level;
    }
    restart();
    EXPECT_EQ(countMessages(), 0u) << "the level outlives a restart";
    plugin.shutdown();
    plugin.unload();
    load();
    plugin.startup();
    EXPECT_EQ(countMessages(), 2u) << "before the service pushed a level";
}

TEST_F(Lifecycle, WithoutDictionaryOrRootTheStoreStaysStopped) {
    plugin.shutdown();
    g_host.dictionary = nullptr;
    plugin.startup();
    EXPECT_EQ(takeLog(), "1 vornOnPluginStartup: cannot acquire vorn::dictionary::IDictionary 0.4");
    settings->setInt64("/a", 1);
    plugin.shutdown();
    g_host.dictionary = dictionary;
    g_recorder.isCreateFailing = true;
    plugin.startup();
    settings->setInt64("/a", 1);
    g_recorder.isCreateFailing = false;
    restart();
    settings->setInt64("/a", 1);
    EXPECT_EQ(dump(), "{a:1}");
}
