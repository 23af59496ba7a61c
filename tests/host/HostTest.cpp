// The C++ face: one host at a time, that leaves nothing behind; directories; the file system.

#include "HostFixture.h"

#include "vorn/filesystem/FileSystem.h"

#include <cstdlib>
#include <dlfcn.h>
#include <malloc.h>

using namespace vorn::filesystem;
using vorn::host::Host;
using vorn::host::HostError;

TEST(Host, IsAloneAndStartedAHundredTimesGrowsNothingAndUnloadsEverything) {
    vorn::logging::Logger silent = {[](auto...) {}};
    const auto liveOnce = [&] {
        Host host(Lines{});
        EXPECT_THROW(Host second(Lines{}), HostError);
        host.logging().addLogger(&silent);
        host.logging().createStandardLogger();
        host.logging().setLevelThresholdForSource(
            "gone", vorn::logging::LogSettingBehavior::eOverride, vorn::logging::kLevelFatal);
        host.framework().setReloadableTempPath(testing::TempDir().c_str());
        for (const char* name : {"top", "middle", "base", "edition1"}) {
            host.loadPlugin(pluginFile(name));
        }
        EXPECT_THROW(host.loadPlugin(pluginFile("namesake")), HostError);
        EXPECT_NE(host.acquire({"test::Top", {0, 1}}, nullptr), nullptr);
    };
    constexpr int kWarmUps = 10, kRounds = 100;
    size_t bytesBefore = 0;
    for (int round = -kWarmUps; round < kRounds; ++round) {
        bytesBefore = round == 0 ? mallinfo2().uordblks : bytesBefore;
        liveOnce();
    }
    EXPECT_EQ(dlopen(pluginFile("base").c_str(), RTLD_LAZY | RTLD_NOLOAD), nullptr);
    // The allocator's own lists settle late; one block lost in every round takes 32 bytes of it.
    EXPECT_LT(mallinfo2().uordblks, bytesBefore + kRounds * 32);
}

struct Directories : testing::Test, OwnDirectory {};

TEST_F(Directories, AreSearchedInTurnAndWhatIsWrongIsLoggedOrThrown) {
    put("rival", "libbase.plugin.so");
    put("base", "libfresh.plugin.so");
    testing::internal::CaptureStderr();
    Host host({VORN_HOST_TEST_PLUGIN_DIR, root});
    const std::string errors = testing::internal::GetCapturedStderr();
    expectParts(errors, {"vorn.host: error: plugin \"othermajor.plugin\"", root / "libfresh"});
    EXPECT_EQ(errors.find(root / "libbase"), std::string::npos) << "that name was there before";
    EXPECT_EQ(host.framework().getPluginDesc("test.base").libPath, pluginFile("base"));

    EXPECT_NE(host.acquire({"test::Top", {0, 1}}, nullptr), nullptr);
    EXPECT_THROW(host.acquire({"test::Lonely", {0, 1}}, nullptr), HostError);
}

TEST_F(Directories, OfTheEnvironmentAreTakenFirstThatExistAndOnce) {
    setenv("VORN_PLUGIN_PATH", ("/nowhere/at/all::/:" + root.string() + "/./deep:/").c_str(), 1);
    const Lines directories = vorn::host::defaultPluginDirectories();
    unsetenv("VORN_PLUGIN_PATH");
    ASSERT_GE(directories.size(), 2u);
    EXPECT_EQ(directories[0] + directories[1], "/" + (root / "deep").string());
    EXPECT_EQ(std::count(directories.begin(), directories.end(), "/"), 1);
}

TEST_F(Directories, AreWalkedInOrderWithFilesDirectoriesAndLinksToldApart) {
    Host host(Lines{});
    const FileSystem& files = *host.acquire<FileSystem>();
    const std::string b = root / "b", copy = root / "e", deep = root / "deep", a = deep + "/../a";
    std::ofstream(b) << "text";
    std::ofstream(copy) << "is not reached";
    fs::create_symlink("b", root / "a");
    fs::create_symlink("nowhere", root / "c");
    const auto note = [](const char* path, const ItemInfo* info, void* seen) {
        const std::string name = fs::path(path).filename();
        const char* const types[] = {" file", " directory", " other"};
        static_cast<Lines*>(seen)->push_back(name + types[static_cast<int>(info->type)] +
                                             (info->isLink ? " link" : ""));
        return name == "deep" ? WalkAction::eStop : WalkAction::eContinue;
    };
    Lines seen;
    EXPECT_TRUE(files.forEachDirectoryItem(root.c_str(), note, &seen));
    EXPECT_EQ(seen, (Lines{"a file link", "b file", "c other link", "deep directory"}));

    EXPECT_TRUE(files.copyFile(b.c_str(), copy.c_str()) && fs::file_size(copy) == 4);
    EXPECT_TRUE(files.removeFile(copy.c_str()) && !files.exists(copy.c_str()));
    std::string buffer(b.size() + 1, '?');
    EXPECT_EQ(files.getCanonicalPath(a.c_str(), buffer.data(), b.size()), b.size());
    EXPECT_EQ(buffer[0], '?') << "one byte short: nothing is written";
    files.getCanonicalPath(a.c_str(), buffer.data(), buffer.size());
    EXPECT_STREQ(buffer.c_str(), b.c_str());

    EXPECT_FALSE(files.makeDirectories(b.c_str()) || files.makeDirectories(nullptr));
    for (const char* path : {static_cast<const char*>(nullptr), "/nowhere/at/all"}) {
        EXPECT_FALSE(files.exists(path) || files.isDirectory(path) || files.removeFile(path));
        EXPECT_FALSE(files.copyFile(path, b.c_str()) || files.copyFile(b.c_str(), path));
        EXPECT_FALSE(files.getCanonicalPath(path, nullptr, 0));
        EXPECT_FALSE(files.forEachDirectoryItem(path, note, &seen));
    }
    EXPECT_FALSE(files.isDirectory(b.c_str()));
}
