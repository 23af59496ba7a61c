// Which libraries are accepted, what is said of those that are not, and how plugins leave.

#include "HostFixture.h"

#include <chrono>
#include <dlfcn.h>

using namespace vorn;
using PluginLoading = HostFixture;
using PluginLeaving = HostFixture;

// ---- refusals -----------------------------------------------------------------------------------

TEST_F(PluginLoading, ARefusalNamesPluginFileAndExpectationAndLeavesOthersRunning) {
    const std::pair<std::string, Lines> rows[] = {
        {"othermajor", {"\"othermajor.plugin\"", "expected framework version 0.3", "found 1.0"}},
        {"newerminor", {"\"newerminor.plugin\"", "expected framework version 0.3", "found 0.4"}},
        {"unfinished", {"\"unfinished.plugin\"", "the entry points vornOnPluginShutdown"}},
        {"hollow", {"\"test.hollow\"", "of interface test::Hollow 0.2", "found size 0"}},
        {"text", {"\"text.plugin\"", "expected a shared library"}},
        {"absent", {"\"absent.plugin\"", "expected a shared library, found no such file"}},
        {"namesake", {"\"test.base\"", "name not in use", pluginFile("base")}},
    };
    load("base");
    for (const auto& row : rows) {
        expectThrown([&] { load(row.first); }, row.second);
        expectThrown([&] { load(row.first); }, {pluginFile(row.first)});
    }
    EXPECT_EQ(takeLines(), Lines{}) << "what is thrown is not logged as well";
    EXPECT_EQ(framework.getPluginCount(), 3u) << "the two built-in ones and the first";
    EXPECT_EQ(acquire("test::Base")->getEdition(), 1);

    host.logging().setLevelThreshold(logging::kLevelVerbose);
    EXPECT_EQ(acquire("test::Base")->getLogLevel(), logging::kLevelVerbose)
        << "the refused one of the same name has left the first its log source";
    ASSERT_TRUE(framework.unregisterPlugin("test.base"));
    host.logging().setLevelThreshold(logging::kLevelError); // nobody is left to be told
}

TEST_F(PluginLoading, SearchLogsEachRefusalOnceLoadsTheRestInOrderAndMayComeAgain) {
    loadAll({"libother*", "libtop*", "libmiddle*", "libbase*"});
    expectLogged({"vorn.host: ", "othermajor.plugin", pluginFile("othermajor")});
    PluginDesc plugins[5];
    ASSERT_EQ(framework.getPluginCount(), 5u);
    framework.getPlugins(plugins);
    EXPECT_STREQ(plugins[2].impl.name, "test.base");
    EXPECT_EQ(plugins[4].libPath, pluginFile("top"));
    ASSERT_EQ(plugins[4].dependencyCount, 2u);
    EXPECT_STREQ(plugins[4].dependencies[0].name, "test::Middle");
    EXPECT_STREQ(plugins[4].interfaces[0].name, "test::Top");

    loadAll({"libbase*"});
    EXPECT_EQ(takeLines(), Lines{}) << "what is loaded already is passed over";
    framework.unloadAllPlugins();
    ASSERT_EQ(framework.getPluginCount(), 0u);
    EXPECT_TRUE(framework.registerPlugin("test", framework.getBuiltinLoggingDesc()));
    EXPECT_TRUE(framework.registerPlugin("test", framework.getBuiltinFileSystemDesc()));
    EXPECT_EQ(host.acquire<logging::Logging>(), &host.logging());
}

// A directory of its own for a test, with copies of libraries.
class PluginDirectories : public HostFixture {
protected:
    PluginDirectories() {
        fs::remove_all(root);
        fs::create_directories(root / "deep");
    }
    ~PluginDirectories() override {
        fs::remove_all(root);
    }

    // Writes into the file that is there, as a plain copy does, a second after the one before.
    void put(const std::string& name, const fs::path& file) {
        std::ofstream(root / file) << std::ifstream(pluginFile(name)).rdbuf();
        time += std::chrono::seconds(1);
        fs::last_write_time(root / file, time);
    }

    const fs::path root = fs::path(testing::TempDir()) / "vorn_host_test";
    fs::file_time_type time = fs::file_time_type::clock::now();
};

TEST_F(PluginDirectories, RecursiveSearchHonoursExclusionsAndReportsWhatIsNoDirectory) {
    put("base", "libb.plugin.so");
    put("middle", "deep/liba.plugin.so");
    put("top", "deep/libother.plugin.so");
    put("rival", "notes.txt");
    fs::create_directory_symlink(root, root / "deep/loop");
    const std::string nowhere = root / "nowhere";
    const char* searchPaths[] = {nowhere.c_str(), root.c_str()};
    const char* excluded = "*other*";
    PluginLoadingDesc desc = {searchPaths, 2, false, nullptr, 0, &excluded, 1};
    framework.loadPluginsEx(desc);
    expectLogged({nowhere});
    EXPECT_EQ(framework.getPluginCount(), 3u);
    EXPECT_STREQ(framework.getPluginDesc("test.base").impl.name, "test.base");

    desc.searchRecursive = true;
    fs::create_symlink("nowhere", root / "libbroken.plugin.so");
    desc.loadedFileWildcards = &excluded; // none of them: the usual ones
    framework.loadPluginsEx(desc);
    EXPECT_EQ(framework.getPluginCount(), 4u);
    EXPECT_STREQ(framework.getPluginDesc("test.middle").impl.name, "test.middle");
}

// ---- registering by address ---------------------------------------------------------------------

TEST_F(PluginLoading, RegistersByAddressOnceWhatIsComplete) {
    using Inline = InlinePlugin<2>;
    static InterfaceDesc s_nameless = {nullptr, {0, 1}};
    const std::pair<const char*, void (*)(PluginRegistrationDesc&)> rows[] = {
        {"found a null one", [](auto& desc) { desc.onPluginRegisterFn = nullptr; }},
        {"found a null one", [](auto& desc) { desc.getFrameworkVersionFn = nullptr; }},
        {"found a null one", [](auto& desc) { desc.onPluginStartupFn = nullptr; }},
        {"expected all entry points", [](auto& desc) { desc.onPluginShutdownFn = nullptr; }},
        {"expected a plugin name", [](auto&) { Inline::entry.implDesc.name = nullptr; }},
        {"expected a plugin name", [](auto&) { Inline::entry.implDesc.name = ""; }},
        {"expected 1 interfaces", [](auto&) { Inline::entry.interfaces = nullptr; }},
        {"found no name", [](auto&) { Inline::offered.desc.name = nullptr; }},
        {"found no table", [](auto&) { Inline::offered.ptr = nullptr; }},
        {"expected 1 dependencies", [](auto&) { Inline::needs = nullptr, Inline::needCount = 1; }},
        {"every dependency", [](auto&) { Inline::needs = &s_nameless, Inline::needCount = 1; }},
        {"name not in use", [](auto&) { Inline::entry.implDesc.name = "test.inline1"; }},
    };
    registerInline<1>();
    EXPECT_EQ(framework.getPluginDesc("test.inline1").libPath, nullptr);
    EXPECT_NE(acquire("test::Inline1"), nullptr);
    for (const auto& [found, spoil] : rows) {
        PluginRegistrationDesc desc = Inline::desc();
        spoil(desc);
        EXPECT_FALSE(framework.registerPlugin("test", desc));
        expectLogged({"(registered by test)", found});
    }
    const PluginRegistrationDesc desc = Inline::desc();
    Inline::entry = {
        {"test.bare", nullptr, nullptr, PluginHotReload::eEnabled, nullptr}, nullptr, 0};
    EXPECT_TRUE(framework.registerPlugin("test", desc));
    framework.tryReloadPlugins(); // there is no file to load anew
    EXPECT_STREQ(framework.getPluginDesc("test.bare").impl.author, "");
    EXPECT_EQ(takeLines(), Lines{});
}

TEST_F(PluginLoading, NullArgumentsNameNothing) {
    load("base");
    TestInterface* base = acquire("test::Base");
    acquire("test::Base");
    EXPECT_FALSE(framework.tryAcquireInterfaceWithClient(nullptr, {nullptr, {0, 1}}, nullptr));
    EXPECT_EQ(acquire(nullptr), nullptr);
    expectLogged({"(null)"});
    framework.setDefaultPluginEx(nullptr, {nullptr, {0, 1}}, "test.base");
    EXPECT_EQ(framework.getPluginDesc(nullptr).impl.name, nullptr);
    EXPECT_EQ(framework.verifyInterfaceEx({nullptr, {0, 1}}, base), nullptr);
    EXPECT_EQ(framework.verifyInterfaceEx({"test::Base", {0, 1}}, &base), nullptr);
    for (const char* client : {"nobody", "test", "test", "test"}) {
        framework.releaseInterfaceWithClient(client, base);
        framework.releaseInterfaceWithClient(client, &base);
    }
    const char* none[] = {nullptr};
    const char* directory = VORN_HOST_TEST_PLUGIN_DIR;
    framework.loadPluginsEx({nullptr, 1, false, nullptr, 1, nullptr, 1});
    framework.loadPluginsEx({none, 1, false, none, 1, none, 1});
    expectLogged({"(null)"});
    framework.loadPluginsEx({&directory, 1, false, none, 1, none, 1});
    EXPECT_EQ(framework.getPluginCount(), 3u);
}

// ---- leaving ------------------------------------------------------------------------------------

TEST_F(PluginLeaving, UnregisterStopsAndUnloadsUnlessAStartedPluginDependsOnIt) {
    host.logging().setLevelThreshold(logging::kLevelInfo);
    loadAll({"libbase*", "libmiddle*"});
    EXPECT_FALSE(framework.unregisterPlugin("test.absent"));
    acquire("test::Middle");
    EXPECT_FALSE(framework.unregisterPlugin("test.base"));
    EXPECT_FALSE(framework.unregisterPlugin("vorn.logging.plugin"));
    takeLines();
    EXPECT_TRUE(framework.unregisterPlugin("test.middle"));
    EXPECT_TRUE(framework.unregisterPlugin("test.base"));
    EXPECT_EQ(takeLines(), (Lines{"test.middle: stopped", "test.base: stopped"}));
    EXPECT_EQ(tryAcquire("test::Middle"), nullptr);
    loadAll({"libbase*", "libmiddle*"});
    EXPECT_TRUE(acquire("test::Middle")->isStarted()) << "a plugin may come back";
}

TEST_F(PluginLeaving, WhatIsBusyStaysAndWhatIsUnloadingIsNotStarted) {
    registerInline<1>();
    registerInline<2>();
    registerInline<3>();
    bool isGone = true, isOtherGone = false, isLastGone = false;
    void* late = &isGone;
    InlinePlugin<1>::onStartup = [&] {
        isGone = framework.unregisterPlugin("test.inline1");
        isOtherGone = framework.unregisterPlugin("test.inline3");
    };
    InlinePlugin<1>::onShutdown = [&] {
        late = tryAcquire("test::Inline2");
        isLastGone = framework.unregisterPlugin("test.inline2");
    };
    EXPECT_NE(acquire("test::Inline1"), nullptr);
    framework.unloadAllPlugins();
    EXPECT_TRUE(!isGone && isOtherGone && isLastGone && !late);
}

class PluginReload : public PluginDirectories {
protected:
    PluginReload() {
        framework.setReloadableTempPath(copies.c_str());
        put("edition1", file);
        host.loadPlugin(file);
    }
    int reloadedEdition() {
        framework.tryReloadPlugins();
        TestInterface* table = acquire("test::Edition");
        const int edition = table->getEdition();
        framework.releaseInterfaceWithClient("test", table);
        return edition;
    }

    const fs::path file = root / "libedition.plugin.so", copies = root / "copies";
};

TEST_F(PluginReload, ReplacesAChangedLibraryOnceNobodyHoldsIt) {
    TestInterface* held = acquire("test::Edition");
    put("edition2", file);
    framework.tryReloadPlugins();
    EXPECT_EQ(held->getEdition(), 1) << "overwriting the file does not touch what is held";
    framework.releaseInterfaceWithClient("test", held);
    EXPECT_EQ(reloadedEdition(), 2);
    EXPECT_EQ(std::distance(fs::directory_iterator(copies), {}), 1)
        << "the copy of the first edition went with it";
    host.logging().setLevelThreshold(logging::kLevelVerbose);
    EXPECT_EQ(acquire("test::Edition")->getLogLevel(), logging::kLevelVerbose)
        << "closing the old library left the new one its log source";
    framework.unloadAllPlugins();
    EXPECT_TRUE(fs::is_empty(copies));
}

TEST_F(PluginReload, OnlyWhatIsAnotherFileIsLoadedAnewAndNobodyReliesOn) {
    fs::last_write_time(file, time + std::chrono::hours(1)); // the same bytes again
    EXPECT_EQ(reloadedEdition(), 1);
    registerInline<1>();
    acquire("test::Edition", {0, 1}, nullptr, "test.inline1");
    acquire("test::Inline1");
    put("edition2", "new");
    fs::rename(root / "new", file);
    EXPECT_EQ(reloadedEdition(), 1) << "a started plugin relies on it";
    ASSERT_TRUE(framework.unregisterPlugin("test.inline1"));
    EXPECT_EQ(reloadedEdition(), 2);
    fs::remove(file);
    EXPECT_EQ(reloadedEdition(), 2);
    EXPECT_EQ(takeLines(), Lines{});
}

TEST_F(PluginReload, WithoutRoomForACopyItIsRefused) {
    framework.unloadAllPlugins();
    for (const fs::path& path : {file, fs::path("/proc")}) {
        framework.setReloadableTempPath(path.c_str());
        EXPECT_THROW(host.loadPlugin(file), vorn::host::HostError);
    }
    EXPECT_THROW(host.loadPlugin("/nowhere/at/all.so"), vorn::host::HostError);
    Dl_info cLibrary;
    ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, "fopen"), &cLibrary), 0);
    expectThrown([&] { host.loadPlugin(cLibrary.dli_fname); },
                 {"vornOnPluginRegister, vornGetFrameworkVersion"});
}

TEST_F(PluginReload, ARefusedNewVersionIsReportedOnceAndTheOldOneGoesOn) {
    for (const char* bad : {"newerminor", "text", "base"}) {
        put(bad, file);
        framework.tryReloadPlugins();
        expectLogged({file});
        EXPECT_EQ(reloadedEdition(), 1);
        EXPECT_EQ(takeLines(), Lines{});
    }
}
