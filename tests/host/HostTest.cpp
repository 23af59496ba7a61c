// The C++ face: one host at a time, that leaves nothing behind; directories; the file system.

#include "HostFixture.h"

#include "vorn/filesystem/FileSystem.h"

#include <cstdlib>
#include <malloc.h>

using namespace vorn::filesystem;
using vorn::host::Host;
using vorn::host::HostError;

static const Lines kNoDirectories;

static bool isAnyTestPluginMapped() {
    std::stringstream maps;
    maps << std::ifstream("/proc/self/maps").rdbuf();
    return maps.str().find(VORN_HOST_TEST_PLUGIN_DIR) != std::string::npos;
}

TEST(Host, IsAloneAndStartedAHundredTimesGrowsNothingAndUnloadsEverything) {
    vorn::logging::Logger silent = {[](auto...) {}};
    const auto liveOnce = [&] {
        Host host(kNoDirectories);
        EXPECT_THROW(Host second(kNoDirectories), HostError);
        EXPECT_EQ(host.framework().getPluginCount(), 2u) << "the first one is unharmed";
        host.logging().addLogger(&silent);
        host.logging().createStandardLogger();
        host.logging().setLevelThresholdForSource(
            "gone", vorn::logging::LogSettingBehavior::eOverride, vorn::logging::kLevelFatal);
        host.framework().setReloadableTempPath(testing::TempDir().c_str());
        for (const char* name : {"top", "middle", "base", "edition1"}) {
            host.loadPlugin(pluginFile(name));
        }
        EXPECT_THROW(host.loadPlugin(pluginFile("hollow")), HostError);
        host.acquire({"test::Top", {0, 1}}, nullptr);
        EXPECT_TRUE(isAnyTestPluginMapped());
    };
    constexpr int kWarmUps = 10, kRounds = 100;
    size_t bytesBefore = 0;
    for (int round = -kWarmUps; round < kRounds; ++round) {
        bytesBefore = round == 0 ? mallinfo2().uordblks : bytesBefore;
        liveOnce();
    }
    EXPECT_FALSE(isAnyTestPluginMapped());
    // The allocator's own lists settle late; one block lost in every round takes 32 bytes of it.
    EXPECT_LT(mallinfo2().uordblks, bytesBefore + kRounds * 32);
}

TEST(Host, SearchesDirectoriesInTurnThrowsWhatIsWrongAndTriesWithoutAWord) {
    const fs::path later = fs::path(testing::TempDir()) / "vorn_host_later";
    fs::create_directories(later);
    const auto overwrite = fs::copy_options::overwrite_existing;
    fs::copy_file(pluginFile("rival"), later / "libbase.plugin.so", overwrite);
    fs::copy_file(pluginFile("base"), later / "libfresh.plugin.so", overwrite);
    testing::internal::CaptureStderr();
    Host host({VORN_HOST_TEST_PLUGIN_DIR, later}, "app");
    const std::string errors = testing::internal::GetCapturedStderr();
    expectParts(errors, {"vorn.host: error: plugin \"othermajor.plugin\"", later / "libfresh"});
    EXPECT_EQ(errors.find(later / "libbase"), std::string::npos) << "that name was there before";
    EXPECT_EQ(host.framework().getPluginDesc("test.base").libPath, pluginFile("base"));
    fs::remove_all(later);

    testing::internal::CaptureStderr();
    EXPECT_EQ(host.tryAcquire({"test::Lonely", {0, 1}}, nullptr), nullptr);
    const auto acquireLonely = [&] { host.acquire({"test::Lonely", {0, 1}}, nullptr); };
    expectThrown(acquireLonely, {"\"app\"", "test.lonely", "test::Nowhere 0.1"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(host.acquire({"test::Top", {0, 1}}, nullptr), nullptr);
}

TEST(DefaultPluginDirectories, NamesExistingOnesOnceAndTheEnvironmentFirst) {
    setenv("VORN_PLUGIN_PATH", "/:/nowhere/at/all::" VORN_HOST_TEST_PLUGIN_DIR "/.:/", 1);
    const Lines directories = vorn::host::defaultPluginDirectories();
    unsetenv("VORN_PLUGIN_PATH");
    ASSERT_GE(directories.size(), 2u);
    EXPECT_EQ(directories[0] + directories[1],
              "/" + fs::canonical(VORN_HOST_TEST_PLUGIN_DIR).string());
    for (const std::string& directory : directories) {
        EXPECT_TRUE(fs::is_directory(directory)) << directory;
        EXPECT_EQ(std::count(directories.begin(), directories.end(), directory), 1);
    }
}

TEST(FileSystemService, WalksInOrderAndTellsFilesDirectoriesAndLinksApart) {
    Host host(kNoDirectories);
    const FileSystem& files = *host.acquire<FileSystem>();
    const fs::path root = fs::path(testing::TempDir()) / "vorn_host_files";
    fs::remove_all(root);
    const std::string b = root / "b", copy = root / "e", nowhere = root / "nowhere";
    ASSERT_TRUE(files.makeDirectories((root / "c/deep").c_str()));
    std::ofstream(b) << "text";
    std::ofstream(copy) << "is not reached";
    fs::create_symlink("b", root / "a");
    fs::create_symlink("nowhere", root / "d");
    Lines seen;
    const auto note = [](const char* path, const ItemInfo* info, void* userData) {
        const std::string name = fs::path(path).filename();
        const char* const types[] = {" file", " directory", " other"};
        static_cast<Lines*>(userData)->push_back(
            name + types[static_cast<int>(info->type)] + (info->isLink ? " link " : " ") +
            (info->type == ItemType::eFile ? std::to_string(info->size) : ""));
        return name == "d" ? WalkAction::eStop : WalkAction::eContinue;
    };
    EXPECT_TRUE(files.forEachDirectoryItem(root.c_str(), note, &seen));
    EXPECT_EQ(seen, (Lines{"a file link 4", "b file 4", "c directory ", "d other link "}));
    EXPECT_FALSE(files.forEachDirectoryItem(b.c_str(), note, &seen));
    EXPECT_FALSE(files.forEachDirectoryItem(nullptr, note, &seen));

    EXPECT_TRUE(files.copyFile(b.c_str(), copy.c_str()));
    EXPECT_EQ(fs::file_size(copy), 4u);
    EXPECT_FALSE(files.removeFile((root / "c").c_str()));
    EXPECT_TRUE(files.removeFile(copy.c_str()) && !files.exists(copy.c_str()));

    const std::string expected = fs::canonical(b), roundabout = root / "c/../a";
    const size_t size = expected.size();
    std::string buffer(size + 1, '?');
    EXPECT_EQ(files.getCanonicalPath(roundabout.c_str(), buffer.data(), size), size);
    EXPECT_EQ(buffer[0], '?') << "one byte short: nothing is written";
    files.getCanonicalPath(roundabout.c_str(), buffer.data(), buffer.size());
    EXPECT_STREQ(buffer.c_str(), expected.c_str());

    ItemInfo info;
    for (const char* path : {static_cast<const char*>(nullptr), nowhere.c_str()}) {
        EXPECT_FALSE(files.getItemInfo(path, &info) || files.exists(path));
        EXPECT_FALSE(files.copyFile(path, b.c_str()) || files.isDirectory(path));
        EXPECT_FALSE(files.removeFile(path) || files.getCanonicalPath(path, nullptr, 0));
    }
    EXPECT_FALSE(files.isDirectory(b.c_str()) || files.makeDirectories(b.c_str()));
    EXPECT_FALSE(files.copyFile(b.c_str(), nullptr) || files.makeDirectories(nullptr));
    fs::remove_all(root);
}
