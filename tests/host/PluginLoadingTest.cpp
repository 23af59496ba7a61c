// Which libraries are accepted, what is said of those that are not, and how plugins leave.

#include "HostFixture.h"

using namespace vorn;
using PluginLoading = HostFixture;
using PluginLeaving = HostFixture;

// ---- refusals -----------------------------------------------------------------------------------

TEST_F(PluginLoading, ARefusalNamesPluginFileAndExpectationAndLeavesOthersRunning) {
    const std::pair<std::string, Lines> rows[] = {
        {"othermajor", {"\"othermajor.plugin\"", "expected framework version 0.3", "found 1.0"}},
        {"newerminor", {"\"newerminor.plugin\"", "expected framework version 0.3", "found 0.4"}},
        {"unfinished",
         {"\"unfinished.plugin\"", "the entry points vornOnPluginStartup, vornOnPluginShutdown"}},
        {"text", {"\"text.plugin\"", "expected a shared library"}},
        {"absent", {"\"absent.plugin\"", "expected a shared library, found no such file"}},
        {"namesake", {"\"test.base\"", "name not in use", pluginFile("base")}},
    };
    host.loadPlugin(pluginFile("base"));
    for (const auto& [name, parts] : rows) {
        try {
            host.loadPlugin(pluginFile(name));
            ADD_FAILURE() << name << " was loaded";
        } catch (const vorn::host::HostError& error) {
            expectParts(error.what(), parts);
            expectParts(error.what(), {pluginFile(name)});
        }
    }
    EXPECT_EQ(takeLines(), Lines{}) << "what is thrown is not logged as well";
    EXPECT_EQ(framework.getPluginCount(), 3u) << "the two built-in ones and the first";
    EXPECT_EQ(acquire("test::Base")->getEdition(), 1);

    host.logging().setLevelThreshold(logging::kLevelInfo);
    ASSERT_TRUE(framework.unregisterPlugin("test.base"));
    EXPECT_EQ(takeLines(), Lines{"test.base: stopped"})
        << "the refused one of the same name has left the first its log source";
    host.logging().setLevelThreshold(logging::kLevelError); // nobody is left to be told
}

TEST_F(PluginLoading, RegistersByAddressOnceWhatIsComplete) {
    using Inline = InlinePlugin<2>;
    const std::pair<const char*, void (*)(PluginRegistrationDesc&)> rows[] = {
        {"found a null one", [](auto& desc) { desc.onPluginRegisterFn = nullptr; }},
        {"found a null one", [](auto& desc) { desc.getFrameworkVersionFn = nullptr; }},
        {"found a null one", [](auto& desc) { desc.onPluginStartupFn = nullptr; }},
        {"expected all entry points", [](auto& desc) { desc.onPluginShutdownFn = nullptr; }},
        {"expected a plugin name", [](auto&) { Inline::entry.implDesc.name = nullptr; }},
        {"expected a plugin name", [](auto&) { Inline::entry.implDesc.name = ""; }},
        {"name not in use", [](auto&) { Inline::entry.implDesc.name = "test.inline1"; }},
        {"expected 1 interfaces", [](auto&) { Inline::entry.interfaces = nullptr; }},
        {"found no name", [](auto&) { Inline::offered.desc.name = nullptr; }},
        {"found no table", [](auto&) { Inline::offered.ptr = nullptr; }},
        {"of interface test.inline2 0.1, found size 0", [](auto&) { Inline::offered.size = 0; }},
        {"expected 1 dependencies",
         [](auto& desc) { desc.getPluginDepsFn = [](auto**, auto* count) { *count = 1; }; }},
    };
    ASSERT_TRUE(framework.registerPlugin("test", InlinePlugin<1>::desc()));
    EXPECT_NE(acquire("test.inline1"), nullptr);
    for (const auto& [found, spoil] : rows) {
        PluginRegistrationDesc desc = Inline::desc();
        spoil(desc);
        EXPECT_FALSE(framework.registerPlugin("test", desc));
        expectLogged({"(registered by test)", found});
    }
    const PluginRegistrationDesc desc = Inline::desc();
    Inline::entry.interfaces = nullptr;
    Inline::entry.interfaceCount = 0;
    EXPECT_TRUE(framework.registerPlugin("test", desc));
    framework.tryReloadPlugins(); // there is no file to load anew
    EXPECT_STREQ(framework.getPluginDesc("test.inline2").impl.author, "");
    EXPECT_EQ(framework.getPluginDesc("test.inline2").libPath, nullptr);
    EXPECT_EQ(takeLines(), Lines{});
}

// ---- search -------------------------------------------------------------------------------------

struct PluginDirectories : HostFixture, OwnDirectory {};

TEST_F(PluginDirectories, AreSearchedWithExclusionsInOrderOfFileNamesAndReportedWhenWrong) {
    put("base", "libb.plugin.so");
    put("othermajor", "libc.plugin.so");
    put("top", "deep/liba.plugin.so");
    put("middle", "deep/libother.plugin.so");
    put("rival", "notes.txt");
    fs::create_directory_symlink(root, root / "deep/loop");
    fs::create_symlink("nowhere", root / "libbroken.plugin.so");
    const std::string nowhere = root / "nowhere";
    const char* searchPaths[] = {nowhere.c_str(), root.c_str(), nullptr};
    const char* excluded[] = {nullptr, "*other*"};
    PluginLoadingDesc desc = {nullptr, 3, false, nullptr, 1, excluded, 2};
    framework.loadPluginsEx(desc);
    desc.searchPaths = searchPaths;
    framework.loadPluginsEx(desc);
    EXPECT_EQ(framework.getPluginCount(), 3u);
    framework.unloadAllPlugins();
    EXPECT_TRUE(framework.registerPlugin("test", framework.getBuiltinLoggingDesc()));
    EXPECT_TRUE(framework.registerPlugin("test", framework.getBuiltinFileSystemDesc()));
    EXPECT_EQ(host.acquire<logging::Logging>(), &host.logging());

    desc.searchRecursive = true;
    desc.loadedFileWildcards = excluded;
    desc.loadedFileWildcardCount = 0; // the usual ones
    takeLines();
    framework.loadPluginsEx(desc);
    const Lines lines = takeLines();
    ASSERT_EQ(lines.size(), 3u);
    expectParts(lines[0] + lines[1], {nowhere, "(null)"});
    expectParts(lines[2], {"vorn.host: ", root / "libc.plugin.so"});
    PluginDesc plugins[4];
    ASSERT_EQ(framework.getPluginCount(), 4u);
    framework.getPlugins(plugins);
    EXPECT_EQ(plugins[2].libPath, root / "deep/liba.plugin.so");
    EXPECT_STREQ(plugins[2].dependencies[0].name, "test::Middle");
    EXPECT_STREQ(plugins[3].impl.name, "test.base");
}

// ---- leaving ------------------------------------------------------------------------------------

TEST_F(PluginLeaving, UnregisterStopsAndUnloadsUnlessAStartedPluginDependsOnIt) {
    host.logging().setLevelThreshold(logging::kLevelInfo);
    loadAll({"libbase*", "libmiddle*"});
    acquire("test::Middle");
    for (const char* plugin : {"test.absent", "test.base", "vorn.logging.plugin"}) {
        EXPECT_FALSE(framework.unregisterPlugin(plugin));
    }
    takeLines();
    EXPECT_TRUE(framework.unregisterPlugin("test.middle"));
    EXPECT_TRUE(framework.unregisterPlugin("test.base"));
    EXPECT_EQ(takeLines(), (Lines{"test.middle: stopped", "test.base: stopped"}));
    EXPECT_EQ(tryAcquire("test::Middle"), nullptr);
    loadAll({"libbase*", "libmiddle*"});
    EXPECT_TRUE(acquire("test::Middle")->isStarted()) << "a plugin may come back";
}

// ---- reloading ----------------------------------------------------------------------------------

class PluginReload : public PluginDirectories {
protected:
    PluginReload() {
        framework.setReloadableTempPath(copies.c_str());
        put("edition1", file);
        host.loadPlugin(file);
    }
    // Nobody holds it afterwards.
    int reloadedEdition() {
        framework.tryReloadPlugins();
        TestInterface* table = acquire("test::Edition");
        const int edition = table->getEdition();
        framework.releaseInterfaceWithClient("test", table);
        return edition;
    }

    const fs::path file = root / "libedition.plugin.so", copies = root / "copies";
};

TEST_F(PluginReload, ReplacesAChangedLibraryOnceNobodyHoldsItOrReliesOnIt) {
    TestInterface* held = acquire("test::Edition");
    acquire("test::Edition");
    put("edition2", "new");
    fs::rename(root / "new", file);
    for (const char* client : {"nobody", "test"}) {
        framework.tryReloadPlugins();
        EXPECT_EQ(held->getEdition(), 1);
        framework.releaseInterfaceWithClient(client, held);
        framework.releaseInterfaceWithClient(client, this);
    }
    framework.tryReloadPlugins();
    ASSERT_TRUE(framework.registerPlugin("test", InlinePlugin<1>::desc()));
    acquire("test.inline1");
    acquire("test::Edition", {0, 1}, nullptr, "test.inline1");
    framework.releaseInterfaceWithClient("test", held);
    EXPECT_EQ(reloadedEdition(), 1) << "a started plugin relies on it";
    ASSERT_TRUE(framework.unregisterPlugin("test.inline1"));
    EXPECT_EQ(reloadedEdition(), 2);
    put("edition1", file);
    host.logging().setLevelThreshold(logging::kLevelInfo);
    EXPECT_EQ(reloadedEdition(), 1);
    EXPECT_EQ(takeLines(), (Lines{"test.edition: stopped", "test.edition: started"}))
        << "closing the old library left the new one its log source";
    EXPECT_EQ(std::distance(fs::directory_iterator(copies), {}), 1)
        << "the copies of the earlier ones went with them";
    EXPECT_EQ(reloadedEdition(), 1);
    fs::remove(file);
    EXPECT_EQ(reloadedEdition(), 1);
    EXPECT_EQ(takeLines(), Lines{}) << "only another file is loaded anew";
    framework.unloadAllPlugins();
    EXPECT_TRUE(fs::is_empty(copies));
}

TEST_F(PluginReload, WithoutRoomForACopyOrAFileItIsRefused) {
    framework.unloadAllPlugins();
    for (const fs::path& path : {file, fs::path("/proc")}) {
        framework.setReloadableTempPath(path.c_str());
        EXPECT_THROW(host.loadPlugin(file), vorn::host::HostError);
    }
    EXPECT_THROW(host.loadPlugin("/nowhere/at/all.so"), vorn::host::HostError);
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
