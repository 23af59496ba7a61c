// Which libraries are accepted, what is said of those that are not, and how plugins leave.

#include "HostFixture.h"

#include <chrono>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using namespace vorn;
using PluginLoading = HostFixture;
using PluginLeaving = HostFixture;

// ---- refusals -----------------------------------------------------------------------------------

struct RefusalCase {
    const char* file;
    std::vector<std::string> parts; // of the one message, besides the file
};

static const RefusalCase kRefusalCases[] = {
    {"othermajor", {"\"othermajor.plugin\"", "expected framework version 0.3", "found 1.0"}},
    {"newerminor", {"\"newerminor.plugin\"", "expected framework version 0.3", "found 0.4"}},
    {"unfinished", {"\"unfinished.plugin\"", "expected the entry points vornOnPluginShutdown"}},
    {"hollow", {"\"test.hollow\"", "of interface test::Hollow 0.2", "found size 0"}},
    {"text", {"\"text.plugin\"", "expected a shared library"}},
    {"absent", {"\"absent.plugin\"", "expected a shared library, found no such file"}},
    {"namesake", {"\"test.base\"", "name not in use", pluginFile("base")}},
};

TEST_F(PluginLoading, RefusalNamesPluginFileAndExpectationAndLeavesOthersRunning) {
    load("base");
    for (const RefusalCase& row : kRefusalCases) {
        SCOPED_TRACE(row.file);
        expectThrown([&] { load(row.file); }, row.parts);
        expectThrown([&] { load(row.file); }, {pluginFile(row.file)});
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
    loadAll({"libother*", "libtext*", "libtop*", "libmiddle*", "libbase*"});

    const Lines lines = takeLines();
    ASSERT_EQ(lines.size(), 2u) << testing::PrintToString(lines);
    expectOneLine({lines[0]}, {"vorn.host: ", "othermajor.plugin", pluginFile("othermajor")});
    expectOneLine({lines[1]}, {"vorn.host: ", "text.plugin", pluginFile("text")});
    std::vector<PluginDesc> plugins(framework.getPluginCount());
    framework.getPlugins(plugins.data());
    std::string names;
    for (const PluginDesc& plugin : plugins) {
        names += std::string(plugin.impl.name) + " ";
    }
    EXPECT_EQ(names, "vorn.logging.plugin vorn.filesystem.plugin test.base test.middle test.top ");
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
        fs::create_directories(root / "one/deep");
        fs::create_directories(root / "two");
    }
    ~PluginDirectories() override {
        fs::remove_all(root);
    }

    // Writes into the file that is there, as a plain copy does, a second after the one before.
    void put(const std::string& name, const fs::path& file) {
        std::ifstream source(pluginFile(name), std::ios::binary);
        std::ofstream(root / file, std::ios::binary) << source.rdbuf();
        time += std::chrono::seconds(1);
        fs::last_write_time(root / file, time);
    }

    const fs::path root = fs::path(testing::TempDir()) / "vorn_host_test";
    fs::file_time_type time = fs::file_time_type::clock::now();
};

TEST_F(PluginDirectories, RecursiveSearchHonoursExclusionsAndReportsWhatIsNoDirectory) {
    put("base", "one/libb.plugin.so");
    put("middle", "one/deep/liba.plugin.so");
    put("top", "one/deep/libother.plugin.so");
    put("rival", "one/notes.txt");
    fs::create_directory_symlink(root / "one", root / "one/deep/loop");

    const std::string one = root / "one", nowhere = root / "nowhere";
    const char* searchPaths[] = {nowhere.c_str(), one.c_str()};
    const char* excluded = "*other*";
    PluginLoadingDesc desc = {searchPaths, 2, false, nullptr, 0, &excluded, 1};
    framework.loadPluginsEx(desc);
    expectOneLine(takeLines(), {nowhere});
    EXPECT_EQ(framework.getPluginCount(), 3u);
    EXPECT_STREQ(framework.getPluginDesc("test.base").impl.name, "test.base");

    desc.searchRecursive = true;
    fs::create_symlink("nowhere", root / "one/libbroken.plugin.so");
    desc.loadedFileWildcards = &excluded; // none of them: the usual ones
    framework.loadPluginsEx(desc);
    EXPECT_EQ(framework.getPluginCount(), 4u);
    EXPECT_STREQ(framework.getPluginDesc("test.middle").impl.name, "test.middle");
    EXPECT_EQ(framework.getPluginDesc("test.top").impl.name, nullptr);
}

// ---- registering by address ---------------------------------------------------------------------

TEST_F(PluginLoading, RegistersByAddressOnceAndChecksTheEntryPoints) {
    registerInline<1>();
    EXPECT_EQ(takeLines(), Lines{});
    EXPECT_EQ(framework.getPluginDesc("test.inline1").libPath, nullptr);
    EXPECT_NE(acquire("test::Inline1"), nullptr);

    EXPECT_FALSE(framework.registerPlugin("test", InlinePlugin<1>::desc()));
    expectOneLine(takeLines(), {"\"test.inline1\" (registered by test)", "name not in use"});

    const auto expectRefusedWithout = [&](auto entryPoint) {
        PluginRegistrationDesc incomplete = InlinePlugin<2>::desc();
        incomplete.*entryPoint = nullptr;
        EXPECT_FALSE(framework.registerPlugin("test", incomplete));
        expectOneLine(takeLines(), {"expected all entry points", "found a null one"});
    };
    expectRefusedWithout(&PluginRegistrationDesc::onPluginRegisterFn);
    expectRefusedWithout(&PluginRegistrationDesc::getFrameworkVersionFn);
    expectRefusedWithout(&PluginRegistrationDesc::onPluginStartupFn);
    expectRefusedWithout(&PluginRegistrationDesc::onPluginShutdownFn);
}

// A plugin that says of itself what the row says.
TEST_F(PluginLoading, RefusesDescriptionsThatAreIncomplete) {
    using Interface = PluginRegistryEntry::Interface;
    struct Row {
        const char* found;
        const char* name;
        Interface interface;
        size_t interfaceCount, dependencyCount;
        const char* dependency; // null list when empty
    };
    static Row s_row;
    static const Version kVersion = {0, 1};
    PluginRegistrationDesc desc = InlinePlugin<1>::desc();
    desc.onPluginRegisterFn = [](Framework*, PluginRegistryEntry* entry) {
        entry->implDesc.name = s_row.name; // all other texts null
        entry->implDesc.hotReload = PluginHotReload::eEnabled;
        entry->interfaces = s_row.interfaceCount == 1 ? &s_row.interface : nullptr;
        entry->interfaceCount = s_row.interfaceCount;
    };
    desc.getPluginDepsFn = [](InterfaceDesc** dependencies, size_t* count) {
        static InterfaceDesc s_dependency = {nullptr, {0, 1}};
        *dependencies = s_row.dependency ? nullptr : &s_dependency;
        *count = s_row.dependencyCount;
    };
    for (const Row& row : {
             Row{"expected a plugin name", nullptr, {}, 0, 0, ""},
             Row{"expected a plugin name", "", {}, 0, 0, ""},
             Row{"expected 2 interfaces", "test.x", {}, 2, 0, ""},
             Row{"found no name", "test.x", {{nullptr, kVersion}, "table", 8}, 1, 0, ""},
             Row{"found no table", "test.x", {{"test::X", kVersion}, nullptr, 8}, 1, 0, ""},
             Row{"expected 1 dependencies", "test.x", {}, 0, 1, ""},
             Row{"a name for every dependency", "test.x", {}, 0, 1, nullptr},
         }) {
        s_row = row;
        EXPECT_FALSE(framework.registerPlugin("test", desc));
        expectOneLine(takeLines(), {row.found});
    }
    s_row = {"", "test.bare", {}, 0, 0, ""};
    EXPECT_TRUE(framework.registerPlugin("test", desc));
    framework.tryReloadPlugins(); // there is no file to load anew
    EXPECT_STREQ(framework.getPluginDesc("test.bare").impl.author, "");
    EXPECT_EQ(takeLines(), Lines{});
}

TEST_F(PluginLoading, NullArgumentsNameNothing) {
    load("base");
    TestInterface* base = acquire("test::Base");
    EXPECT_FALSE(framework.tryAcquireInterfaceWithClient(nullptr, {nullptr, {0, 1}}, nullptr));
    EXPECT_EQ(acquire(nullptr), nullptr);
    expectOneLine(takeLines(), {"(null)"});
    framework.setDefaultPluginEx(nullptr, {nullptr, {0, 1}}, "test.base");
    load("rival");
    for (const char* unfit : {"test.absent", "vorn.logging.plugin"}) {
        framework.setDefaultPluginEx("test", {"test::Base", {0, 1}}, unfit);
        EXPECT_EQ(acquire("test::Base"), base) << "a default that cannot serve is passed over";
    }
    EXPECT_EQ(acquire("test::Base", {0, 9}), nullptr);
    expectOneLine(takeLines(), {"test.base", "0.2 of plugin", "test.rival"});
    EXPECT_EQ(framework.getPluginDesc(nullptr).impl.name, nullptr);
    EXPECT_EQ(framework.verifyInterfaceEx({nullptr, {0, 1}}, base), nullptr);
    EXPECT_EQ(framework.verifyInterfaceEx({"test::Base", {0, 1}}, &base), nullptr);
    const InterfaceDesc top = {"test::Top", {0, 1}};
    EXPECT_EQ(framework.tryAcquireInterfaceFromInterfaceWithClient("test", top, base), nullptr);
    for (const char* client : {"nobody", "test", "test", "test", "test"}) {
        framework.releaseInterfaceWithClient(client, base);
        framework.releaseInterfaceWithClient(client, &base);
    }
    framework.loadPluginsEx({nullptr, 1, false, nullptr, 1, nullptr, 1});
    const char* none[] = {nullptr};
    framework.loadPluginsEx({none, 1, false, none, 1, none, 1});
    expectOneLine(takeLines(), {"(null)"});
    const char* directory = VORN_HOST_TEST_PLUGIN_DIR;
    framework.loadPluginsEx({&directory, 1, false, none, 1, none, 1});
    EXPECT_EQ(framework.getPluginCount(), 4u);
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
    EXPECT_TRUE(!isGone && isOtherGone && isLastGone);
    EXPECT_EQ(late, nullptr);
}

class PluginReload : public PluginDirectories {
protected:
    PluginReload() {
        framework.setReloadableTempPath((root / "copies").c_str());
        put("edition1", kFile);
        host.loadPlugin(root / kFile);
    }

    int reloadedEdition() {
        framework.tryReloadPlugins();
        TestInterface* table = acquire("test::Edition");
        const int edition = table->getEdition();
        framework.releaseInterfaceWithClient("test", table);
        return edition;
    }
    size_t copyCount() const {
        return std::distance(fs::directory_iterator(root / "copies"), {});
    }

    static constexpr const char* kFile = "libedition.plugin.so";
};

TEST_F(PluginReload, ReplacesAChangedLibraryOnceNobodyHoldsIt) {
    TestInterface* held = acquire("test::Edition");
    put("edition2", kFile);
    framework.tryReloadPlugins();
    EXPECT_EQ(held->getEdition(), 1) << "overwriting the file does not touch what is held";

    framework.releaseInterfaceWithClient("test", held);
    EXPECT_EQ(reloadedEdition(), 2);
    EXPECT_EQ(copyCount(), 1u) << "the copy of the first edition went with it";

    host.logging().setLevelThreshold(logging::kLevelVerbose);
    EXPECT_EQ(acquire("test::Edition")->getLogLevel(), logging::kLevelVerbose)
        << "closing the old library left the new one its log source";
    framework.unloadAllPlugins();
    EXPECT_EQ(copyCount(), 0u);
}

TEST_F(PluginReload, OnlyWhatIsAnotherFileIsLoadedAnew) {
    EXPECT_EQ(reloadedEdition(), 1);
    fs::last_write_time(root / kFile, time + std::chrono::hours(1)); // the same bytes again
    EXPECT_EQ(reloadedEdition(), 1);
    put("edition2", "new");
    fs::rename(root / "new", root / kFile);
    EXPECT_EQ(reloadedEdition(), 2);
    fs::remove(root / kFile);
    EXPECT_EQ(reloadedEdition(), 2);
    EXPECT_EQ(takeLines(), Lines{});
}

TEST_F(PluginReload, WithoutRoomForACopyItIsRefused) {
    framework.unloadAllPlugins();
    for (const fs::path& path : {root / kFile, fs::path("/proc")}) {
        framework.setReloadableTempPath(path.c_str());
        EXPECT_THROW(host.loadPlugin(root / kFile), vorn::host::HostError);
    }
    EXPECT_THROW(host.loadPlugin("/nowhere/at/all.so"), vorn::host::HostError);
    Dl_info cLibrary;
    ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, "fopen"), &cLibrary), 0);
    expectThrown([&] { host.loadPlugin(cLibrary.dli_fname); },
                 {"vornOnPluginRegister, vornGetFrameworkVersion"});
}

TEST_F(PluginReload, AnUnregisteredClientHoldsNothingAnyMore) {
    registerInline<1>();
    acquire("test::Edition", {0, 1}, nullptr, "test.inline1");
    acquire("test::Inline1");
    put("edition2", kFile);
    EXPECT_EQ(reloadedEdition(), 1) << "a started plugin relies on it";
    ASSERT_TRUE(framework.unregisterPlugin("test.inline1"));
    EXPECT_EQ(reloadedEdition(), 2);
}

TEST_F(PluginReload, ARefusedNewVersionIsReportedOnceAndTheOldOneGoesOn) {
    EXPECT_EQ(reloadedEdition(), 1);
    for (const char* bad : {"newerminor", "text", "base"}) {
        SCOPED_TRACE(bad);
        put(bad, kFile);
        framework.tryReloadPlugins();
        expectOneLine(takeLines(), {root / kFile});
        EXPECT_EQ(reloadedEdition(), 1);
        EXPECT_EQ(takeLines(), Lines{});
    }
    host.logging().setLevelThreshold(logging::kLevelVerbose);
    EXPECT_EQ(acquire("test::Edition")->getLogLevel(), logging::kLevelVerbose);
}
