// What the tests of the host share: a host without plugins, a logger that records, and verbs.
#pragma once

#include "TestInterface.h"

#include "vorn/host/Host.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using Lines = std::vector<std::string>;

// The library of a test plugin.
inline std::string pluginFile(const std::string& name) {
    return std::string(VORN_HOST_TEST_PLUGIN_DIR) + "/lib" + name + ".plugin.so";
}

// Keeps every message as "source: text".
struct RecordingLogger {
    vorn::logging::Logger logger = {[](auto* self, auto* source, auto, auto, auto, auto* message) {
        Lines& lines = reinterpret_cast<RecordingLogger*>(self)->lines; // whose first member it is
        lines.push_back(std::string(source) + ": " + message);
    }};
    Lines lines;
};

// A plugin of the test program itself, "test.inline" and a number, with an interface of its own.
// Its start-up and shut-down do what is set.
template <int number>
struct InlinePlugin {
    static inline const std::string name = "test.inline" + std::to_string(number);
    static inline const std::string interface = "test::Inline" + std::to_string(number);
    static inline std::function<void()> onStartup, onShutdown;

    static vorn::PluginRegistrationDesc desc() {
        const auto onRegister = [](vorn::Framework*, vorn::PluginRegistryEntry* entry) {
            static const TestInterface kTable = {};
            static const vorn::PluginRegistryEntry::Interface kInterface = {
                {interface.c_str(), {0, 1}}, &kTable, sizeof(kTable)};
            *entry = {{name.c_str(), "", "", vorn::PluginHotReload::eDisabled, ""}, &kInterface, 1};
        };
        return {onRegister, [] { return vorn::kFrameworkVersion; }, nullptr, [] { onStartup(); },
                [] { onShutdown(); }};
    }
};

class HostFixture : public testing::Test {
protected:
    HostFixture() {
        host.logging().removeLogger(&host.logging().getDefaultLogger()->logger);
        host.logging().addLogger(&log.logger);
    }

    void load(const std::string& name) {
        host.loadPlugin(pluginFile(name));
    }

    // Whose start-up and shut-down do nothing as yet.
    template <int number>
    void registerInline() {
        InlinePlugin<number>::onStartup = InlinePlugin<number>::onShutdown = [] {};
        ASSERT_TRUE(framework.registerPlugin("test", InlinePlugin<number>::desc()));
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
        return static_cast<TestInterface*>(
            framework.tryAcquireInterfaceWithClient("test", {interface, version}, nullptr));
    }

    // The messages so far, which are forgotten.
    Lines takeLines() {
        return std::exchange(log.lines, {});
    }

    RecordingLogger log; // outlives the host, which logs to the end
    vorn::host::Host host{{}, "test"};
    vorn::Framework& framework = host.framework();
};

// Expects one message that holds all the parts.
inline void expectOneLine(const Lines& lines, const std::vector<std::string>& parts) {
    ASSERT_EQ(lines.size(), 1u) << testing::PrintToString(lines);
    for (const std::string& part : parts) {
        EXPECT_NE(lines[0].find(part), std::string::npos) << part << "\nis not in\n" << lines[0];
    }
}

// Expects that the act throws one that holds all the parts.
inline void expectThrown(const std::function<void()>& act, const std::vector<std::string>& parts) {
    try {
        act();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const vorn::host::HostError& error) {
        expectOneLine({error.what()}, parts);
    }
}

inline void runOnThreads(int count, const std::function<void(int)>& body) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(body, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
