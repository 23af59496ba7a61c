// Which libraries are accepted, what is said of those that are not, and how plugins leave.

#include "HostFixture.h"

#include <chrono>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

using vorn::host::HostError;
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
        try {
            load(row.file);
            ADD_FAILURE() << "was accepted";
        } catch (const HostError& error) {
            expectOneLine({error.what()}, row.parts);
            EXPECT_NE(std::string(error.what()).find(pluginFile(row.file)), std::string::npos);
        }
    }
    EXPECT_EQ(takeLines(), Lines{}) << "what is thrown is not logged as well";
    EXPECT_EQ(framework.getPluginCount(), 3u) << "the two built-in ones and the first";
    EXPECT_EQ(acquire("test::Base")->getEdition(), 1);
}

TEST_F(PluginLoading, RefusedLibraryOfTheSameNameLeavesTheFirstOneItsLogSource) {
    load("base");
    TestInterface* base = acquire("test::Base");
    EXPECT_THROW(load("namesake"), HostError);

    host.logging().setLevelThreshold(vorn::logging::kLevelVerbose);
    EXPECT_EQ(base->getLogLevel(), vorn::logging::kLevelVerbose);
    ASSERT_TRUE(framework.unregisterPlugin("test.base"));
    host.logging().setLevelThreshold(vorn::logging::kLevelError); // nobody is left to be told
}

TEST_F(PluginLoading, SearchLogsEachRefusalOnceAndLoadsTheRestInTheOrderOfFileNames) {
    loadAll({"libother*", "libtext*", "libtop*", "libmiddle*", "libbase*"});

    const Lines lines = takeLines();
    ASSERT_EQ(lines.size(), 2u) << testing::PrintToString(lines);
    expectOneLine({lines[0]}, {"vorn.host: ", "othermajor.plugin", pluginFile("othermajor")});
    expectOneLine({lines[1]}, {"vorn.host: ", "text.plugin", pluginFile("text")});
    std::vector<vorn::PluginDesc> plugins(framework.getPluginCount());
    framework.getPlugins(plugins.data());
    Lines names;
    for (const vorn::PluginDesc& plugin : plugins) {
        names.push_back(plugin.impl.name);
    }
    EXPECT_EQ(names, (Lines{"vorn.logging.plugin", "vorn.filesystem.plugin", "test.base",
                            "test.middle", "test.top"}));
    EXPECT_EQ(plugins[4].libPath, pluginFile("top"));
    ASSERT_EQ(plugins[4].dependencyCount, 2u);
    EXPECT_STREQ(plugins[4].dependencies[0].name, "test::Middle");
    EXPECT_STREQ(plugins[4].interfaces[0].name, "test::Top");

    loadAll({"libbase*"});
    EXPECT_EQ(takeLines(), Lines{}) << "what is loaded already is passed over";
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
    vorn::PluginLoadingDesc desc = {searchPaths, 2, false, nullptr, 0, &excluded, 1};
    framework.loadPluginsEx(desc);
    expectOneLine(takeLines(), {nowhere});
    EXPECT_EQ(framework.getPluginCount(), 3u);
    EXPECT_STREQ(framework.getPluginDesc("test.base").impl.name, "test.base");

    desc.searchRecursive = true;
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

    vorn::PluginRegistrationDesc incomplete = InlinePlugin<1>::desc();
    incomplete.onPluginStartupFn = nullptr;
    EXPECT_FALSE(framework.registerPlugin("test", incomplete));
    expectOneLine(takeLines(), {"expected all entry points", "found a null one"});

    vorn::PluginRegistrationDesc nameless = InlinePlugin<1>::desc();
    nameless.onPluginRegisterFn = [](vorn::Framework*, vorn::PluginRegistryEntry*) {};
    EXPECT_FALSE(framework.registerPlugin("test", nameless));
    expectOneLine(takeLines(), {"expected a plugin name"});
}

TEST_F(PluginLoading, BuiltInPluginsComeBackAfterUnloadingAll) {
    framework.unloadAllPlugins();
    ASSERT_EQ(framework.getPluginCount(), 0u);
    EXPECT_TRUE(framework.registerPlugin("test", framework.getBuiltinLoggingDesc()));
    EXPECT_TRUE(framework.registerPlugin("test", framework.getBuiltinFileSystemDesc()));
    EXPECT_EQ(host.acquire<vorn::logging::Logging>(), &host.logging());
}

// ---- leaving ------------------------------------------------------------------------------------

TEST_F(PluginLeaving, UnregisterStopsAndUnloadsUnlessAStartedPluginDependsOnIt) {
    host.logging().setLevelThreshold(vorn::logging::kLevelInfo);
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

class PluginReload : public PluginDirectories {
protected:
    PluginReload() {
        framework.setReloadableTempPath((root / "copies").c_str());
        put("edition1", "libedition.plugin.so");
        host.loadPlugin(root / "libedition.plugin.so");
    }

    int acquiredEdition() {
        TestInterface* table = acquire("test::Edition");
        const int edition = table->getEdition();
        framework.releaseInterfaceWithClient("test", table);
        return edition;
    }
    size_t copyCount() const {
        return std::distance(fs::directory_iterator(root / "copies"), {});
    }
};

TEST_F(PluginReload, ReplacesAChangedLibraryOnceNobodyHoldsIt) {
    TestInterface* held = acquire("test::Edition");
    put("edition2", "libedition.plugin.so");
    framework.tryReloadPlugins();
    EXPECT_EQ(held->getEdition(), 1) << "overwriting the file does not touch what is held";

    framework.releaseInterfaceWithClient("test", held);
    framework.tryReloadPlugins();
    EXPECT_EQ(acquiredEdition(), 2);
    EXPECT_EQ(copyCount(), 1u) << "the copy of the first edition went with it";

    host.logging().setLevelThreshold(vorn::logging::kLevelVerbose);
    EXPECT_EQ(acquire("test::Edition")->getLogLevel(), vorn::logging::kLevelVerbose)
        << "closing the old library left the new one its log source";
    framework.unloadAllPlugins();
    EXPECT_EQ(copyCount(), 0u);
}

TEST_F(PluginReload, AnUnregisteredClientHoldsNothingAnyMore) {
    registerInline<1>();
    acquire("test::Edition", {0, 1}, nullptr, "test.inline1");
    put("edition2", "libedition.plugin.so");
    ASSERT_TRUE(framework.unregisterPlugin("test.inline1"));
    framework.tryReloadPlugins();
    EXPECT_EQ(acquiredEdition(), 2);
}

TEST_F(PluginReload, ARefusedNewVersionIsReportedOnceAndTheOldOneGoesOn) {
    EXPECT_EQ(acquiredEdition(), 1);
    for (const char* bad : {"newerminor", "text", "base"}) {
        SCOPED_TRACE(bad);
        put(bad, "libedition.plugin.so");
        framework.tryReloadPlugins();
        expectOneLine(takeLines(), {(root / "libedition.plugin.so").string()});
        framework.tryReloadPlugins();
        EXPECT_EQ(takeLines(), Lines{});
        EXPECT_EQ(acquiredEdition(), 1);
    }
    host.logging().setLevelThreshold(vorn::logging::kLevelVerbose);
    EXPECT_EQ(acquire("test::Edition")->getLogLevel(), vorn::logging::kLevelVerbose);
}
