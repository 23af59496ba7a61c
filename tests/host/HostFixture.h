// What the tests of the host share: a host without plugins, a logger that records, and verbs.
#pragma once

#include "TestInterface.h"
#include "support/Threads.h"

#include "vorn/host/Host.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// The library of a test plugin.
inline std::string pluginFile(const std::string& name) {
    return std::string(VORN_HOST_TEST_PLUGIN_DIR) + "/lib" + name + ".plugin.so";
}

// Expects that the text holds all the parts.
inline void expectParts(const std::string& text, const Lines& parts) {
    for (const std::string& part : parts) {
        EXPECT_NE(text.find(part), std::string::npos) << part << "\nis not in\n" << text;
    }
}

// A directory of its own for a test.
struct OwnDirectory {
    OwnDirectory() {
        fs::remove_all(root);
        fs::create_directories(root / "deep");
    }
    ~OwnDirectory() {
        fs::remove_all(root);
    }

    // Writes a plugin's library into the file as a plain copy does, a second after the one before.
    void put(const std::string& name, const fs::path& file) {
        std::ofstream(root / file) << std::ifstream(pluginFile(name)).rdbuf();
        time += std::chrono::seconds(1);
        fs::last_write_time(root / file, time);
    }

    const fs::path root = fs::canonical(testing::TempDir()) / "vorn_host_test";
    fs::file_time_type time = fs::file_time_type::clock::now();
};

// Keeps every message as "source: text".
struct RecordingLogger {
    vorn::logging::Logger logger = {[](auto* self, auto* source, auto, auto, auto, auto* message) {
        Lines& lines = reinterpret_cast<RecordingLogger*>(self)->lines; // whose first member it is
        lines.push_back(std::string(source) + ": " + message);
    }};
    Lines lines;
};

// A plugin of the test program itself: it and its only interface are called "test.inline" and a
// number. It says of itself and does what is set.
template <int number>
struct InlinePlugin {
    static inline const std::string name = "test.inline" + std::to_string(number);
    static inline vorn::PluginRegistryEntry::Interface offered;
    static inline vorn::PluginRegistryEntry entry;
    static inline std::function<void()> onStartup, onShutdown;

    static vorn::PluginRegistrationDesc desc() {
        static const TestInterface kTable = {};
        offered = {{name.c_str(), {0, 1}}, &kTable, sizeof(kTable)};
        entry = {{name.c_str(), {}, {}, vorn::PluginHotReload::eEnabled, {}}, &offered, 1};
        onStartup = onShutdown = [] {};
        return {[](auto*, auto* entryOut) { *entryOut = entry; },
                [] { return vorn::kFrameworkVersion; }, nullptr, [] { onStartup(); },
                [] { onShutdown(); }};
    }
};

class HostFixture : public testing::Test {
protected:
    HostFixture() {
        host.logging().removeLogger(&host.logging().getDefaultLogger()->logger);
        host.logging().addLogger(&log.logger);
    }

    // Loads what the wildcards match, the way that an application does it.
    void loadAll(const std::vector<const char*>& wildcards) {
        const char* path = VORN_HOST_TEST_PLUGIN_DIR;
        framework.loadPluginsEx({&path, 1, false, wildcards.data(), wildcards.size(), nullptr, 0});
    }

    TestInterface* acquire(const char* interface,
                           vorn::Version version = {0, 1},
                           const char* pluginName = nullptr,
                           const char* client = "test") {
        return static_cast<TestInterface*>(
            framework.acquireInterfaceWithClient(client, {interface, version}, pluginName));
    }
    TestInterface* tryAcquire(const char* interface, vorn::Version version = {0, 1}) {
        return static_cast<TestInterface*>(host.tryAcquire({interface, version}, nullptr));
    }
    TestInterface* acquireFromLibrary(const char* interface, const std::string& file) {
        return static_cast<TestInterface*>(framework.tryAcquireInterfaceFromLibraryWithClient(
            "test", {interface, {0, 1}}, pluginFile(file).c_str()));
    }

    // The messages so far, which are forgotten.
    Lines takeLines() {
        return std::exchange(log.lines, {});
    }
    // Expects one message since then, that holds all the parts.
    void expectLogged(const Lines& parts) {
        const Lines lines = takeLines();
        ASSERT_EQ(lines.size(), 1u) << testing::PrintToString(lines);
        expectParts(lines[0], parts);
    }

    RecordingLogger log; // outlives the host, which logs to the end
    vorn::host::Host host{{}, "test"};
    vorn::Framework& framework = host.framework();
};
