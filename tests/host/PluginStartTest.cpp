// Acquiring: which plugin serves, what is started and in what order, and what happens when
// several threads, or the plugins themselves, acquire.

#include "HostFixture.h"

#include <atomic>

using Acquiring = HostFixture;

// ---- start and stop -----------------------------------------------------------------------------

TEST_F(Acquiring, StartsDependenciesFirstAndStopsInReverse) {
    host.logging().setLevelThreshold(vorn::logging::kLevelInfo);
    loadAll({"libtop*", "libmiddle*", "libbase*", "librival*"});
    EXPECT_EQ(takeLines(), Lines{}) << "loading starts nothing";

    EXPECT_TRUE(acquire("test::Top")->isStarted());
    acquire("test::Base");
    acquire("test::Base", {0, 1}, "test.rival");
    EXPECT_EQ(takeLines(), (Lines{"test.base: started", "test.middle: started", "test.top: started",
                                  "test.rival: started"}));
    framework.unloadAllPlugins();
    EXPECT_EQ(takeLines(), (Lines{"test.rival: stopped", "test.top: stopped",
                                  "test.middle: stopped", "test.base: stopped"}));
}

TEST_F(Acquiring, UnmetDependencyAndCycleAreRefusedInOneMessageUntilTheyAreMended) {
    loadAll({"liblonely*", "libdemanding*", "libleft*", "libmiddle*"});

    EXPECT_EQ(acquire("test::Lonely"), nullptr);
    expectLogged({"\"test.lonely\"", pluginFile("lonely"),
                  "expected a plugin that offers its dependency test::Nowhere 0.1", "found none"});
    EXPECT_EQ(tryAcquire("test::Middle"), nullptr);
    host.loadPlugin(pluginFile("base"));
    EXPECT_EQ(acquire("test::Demanding"), nullptr);
    expectLogged(
        {"\"test.demanding\"", "test::Base 0.9", "found 0.2", "\"test.base\"", pluginFile("base")});
    EXPECT_TRUE(acquire("test::Middle")->isStarted()) << "a later plugin meets the dependency";

    host.loadPlugin(pluginFile("right"));
    EXPECT_EQ(acquire("test::Left"), nullptr);
    expectLogged({"\"test.left\"", pluginFile("left"), "dependencies without a cycle",
                  "found test.left -> test.right -> test.left"});
    EXPECT_EQ(tryAcquire("test::Left"), nullptr);
    EXPECT_EQ(takeLines(), Lines{}) << "trying logs nothing";
}

// ---- choice -------------------------------------------------------------------------------------

TEST_F(Acquiring, ServesTheSameMajorAndNoNewerMinorVersion) {
    loadAll({"libbase*", "librival*", nullptr});
    EXPECT_EQ(acquire(nullptr), nullptr);
    expectLogged({"(null)"});
    EXPECT_NE(tryAcquire("test::Base", {0, 2}), nullptr);
    EXPECT_EQ(tryAcquire("test::Base", {1, 0}), nullptr);
    EXPECT_EQ(acquire("test::Base", {0, 3}), nullptr);
    expectLogged({"test::Base 0.3", "found 0.2 of", pluginFile("base"), ", 0.2 of", "test.rival"});
    EXPECT_EQ(acquire("test::Base", {0, 1}, "test.absent"), nullptr);
    expectLogged({"expected plugin \"test.absent\""});
    EXPECT_EQ(acquire("test::Top", {0, 1}, "test.base"), nullptr);
    expectLogged({"test.base", "to offer it, found none"});
}

TEST_F(Acquiring, DefaultsChooseAmongSeveralPluginsPerClientAndForAll) {
    loadAll({"libbase*", "librival*"});
    framework.setDefaultPluginEx(nullptr, {nullptr, {0, 1}}, nullptr);
    const struct {
        const char *client, *plugin;
        int editionForOne, editionForTwo;
    } steps[] = {
        {"one", "test.absent", 1, 1}, // a default that cannot serve leaves it to the first
        {"one", "vorn.logging.plugin", 1, 1},
        {"two", "test.rival", 1, 2},
        {nullptr, "test.rival", 2, 2},
        {"two", "test.base", 2, 1},
        {"two", nullptr, 2, 2}, // its own choice is taken back
    };
    for (const auto& step : steps) {
        framework.setDefaultPluginEx(step.client, {"test::Base", {0, 1}}, step.plugin);
        EXPECT_EQ(acquire("test::Base", {0, 1}, nullptr, "one")->getEdition(), step.editionForOne);
        EXPECT_EQ(acquire("test::Base", {0, 1}, nullptr, "two")->getEdition(), step.editionForTwo);
    }
}

TEST_F(Acquiring, FindsTablesByOtherTablesLibrariesAndVersions) {
    loadAll({"libbase*", "librival*"});
    const vorn::InterfaceDesc desc = {"test::Base", {0, 1}};
    void* tables[3] = {&tables, &tables, &tables};
    vorn::PluginDesc plugins[2];
    ASSERT_EQ(framework.getInterfacesCountEx(desc), 2u);
    framework.acquireInterfacesWithClient("test", desc, tables, 3);
    framework.getCompatiblePlugins(desc, plugins);
    void* const rival = acquire("test::Base", {0, 1}, "test.rival");
    EXPECT_TRUE(tables[1] == rival && !tables[2]);
    EXPECT_STREQ(plugins[1].impl.name, "test.rival");
    EXPECT_EQ(framework.getInterfacePluginDesc(rival).libPath, pluginFile("rival"));
    EXPECT_EQ(framework.verifyInterfaceEx(desc, rival), rival);
    EXPECT_EQ(framework.verifyInterfaceEx({"test::Base", {0, 3}}, rival), nullptr);
    EXPECT_EQ(framework.verifyInterfaceEx(desc, tables), nullptr);
    EXPECT_EQ(framework.getInterfacePluginDesc(tables).impl.name, nullptr);
    EXPECT_EQ(framework.getPluginDesc(nullptr).impl.name, nullptr);

    const std::string file = pluginFile("rival");
    EXPECT_EQ(framework.acquireInterfaceFromInterfaceWithClient("test", desc, rival), rival);
    EXPECT_EQ(framework.acquireInterfaceFromLibraryWithClient("test", desc, file.c_str()), rival);
    EXPECT_EQ(framework.acquireInterfaceFromInterfaceWithClient("test", desc, tables), nullptr);
    expectLogged({"expected the table of another interface"});
    EXPECT_EQ(acquireFromLibrary("test::Base", "text"), nullptr);
    EXPECT_NE(acquireFromLibrary("test::Older", "olderminor"), nullptr) << "of an older framework";
    EXPECT_EQ(takeLines(), Lines{});
}

// ---- plugins that acquire, and several threads --------------------------------------------------

TEST_F(Acquiring, WhatStartsOrStopsActsOnOthersAlsoFromAnotherThreadButNotOnItself) {
    host.loadPlugin(pluginFile("base"));
    ASSERT_TRUE(framework.registerPlugin("test", InlinePlugin<1>::desc()));
    ASSERT_TRUE(framework.registerPlugin("test", InlinePlugin<2>::desc()));
    bool isBaseStarted = false, isGone = true, isOtherGone = false;
    void *itself = this, *late = this;
    InlinePlugin<1>::onStartup = [&] {
        std::thread([&] {
            isBaseStarted = acquire("test::Base", {0, 1}, nullptr, "test.inline1")->isStarted();
        }).join();
        itself = acquire("test.inline1");
        isGone = framework.unregisterPlugin("test.inline1") ||
                 framework.unregisterPlugin("test.base"); // acquired, though not declared
    };
    InlinePlugin<1>::onShutdown = [&] {
        late = tryAcquire("test.inline2");
        isOtherGone = framework.unregisterPlugin("test.inline2");
    };
    EXPECT_NE(acquire("test.inline1"), nullptr);
    EXPECT_TRUE(isBaseStarted && !itself && !isGone);
    expectLogged({"(registered by test)", "found test.inline1 -> test.inline1"});
    framework.unloadAllPlugins();
    EXPECT_TRUE(isOtherGone && !late) << "nothing is started while all is unloaded";
}

TEST_F(Acquiring, ThreadsThatLoadAndAcquireAtOnceStartEachPluginOnce) {
    host.logging().setLevelThreshold(vorn::logging::kLevelInfo);
    static constexpr const char* kInterfaces[] = {"test::Top", "test::Middle", "test::Base"};
    TestInterface* tables[6] = {};
    runOnThreads(6, [&](int i) {
        for (const char* name : {"base", "middle", "top"}) {
            host.loadPlugin(pluginFile(name));
        }
        tables[i] = tryAcquire(kInterfaces[i % 3]);
        EXPECT_TRUE(tables[i] && tables[i]->isStarted());
    });
    EXPECT_EQ(framework.getPluginCount(), 5u);
    EXPECT_EQ(tables[0], tables[3]);
    EXPECT_EQ(takeLines(),
              (Lines{"test.base: started", "test.middle: started", "test.top: started"}));
}

// Each start-up begins on a thread of its own and then needs the other plugin.
TEST_F(Acquiring, ThreadsThatWouldWaitForEachOtherAreToldSo) {
    ASSERT_TRUE(framework.registerPlugin("test", InlinePlugin<1>::desc()));
    ASSERT_TRUE(framework.registerPlugin("test", InlinePlugin<2>::desc()));
    std::atomic<int> startCount = 0, servedCount = 0;
    const auto startNeeding = [&](const char* interface) {
        ++startCount;
        while (startCount < 2) {
            std::this_thread::yield();
        }
        servedCount += acquire(interface) != nullptr;
    };
    InlinePlugin<1>::onStartup = [&] { startNeeding("test.inline2"); };
    InlinePlugin<2>::onStartup = [&] { startNeeding("test.inline1"); };
    runOnThreads(2, [&](int i) {
        EXPECT_NE(tryAcquire(i == 0 ? "test.inline1" : "test.inline2"), nullptr);
    });
    EXPECT_EQ(servedCount, 1) << "the second one to ask is refused, the first one waits for it";
    expectLogged({"without a cycle", "test.inline1 -> ", "test.inline2 -> "});
}

TEST_F(Acquiring, UnregisteringBesideAcquiringGivesAStartedPluginOrNone) {
    runOnThreads(3, [&](int i) {
        for (int round = 0; round < 20; ++round) {
            // The table may be gone again: nothing is read from it.
            i == 0 ? void(framework.unregisterPlugin("test.base"))
                   : void(acquireFromLibrary("test::Base", "base"));
        }
    });
    EXPECT_TRUE(acquireFromLibrary("test::Base", "base")->isStarted());
}
