// A small plugin in many forms, as its compile definitions say: TEST_NAME, its name; TEST_OFFERS,
// that of its interface, version 0.2; TEST_NEEDS, dependencies; TEST_EDITION, what getEdition
// answers; TEST_FRAMEWORK, framework version; TEST_HOT_RELOAD, eEnabled or eDisabled;
// TEST_OMIT_SHUTDOWN leaves that entry point out; TEST_TABLE_SIZE, the size of the table, as told.
//
// It logs "started" and "stopped" as infos under its own name.

#include "TestInterface.h"

#include "vorn/PluginUtils.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace vorn;

VORN_PLUGIN_GLOBALS(TEST_NAME)

struct OfferedInterface : TestInterface {
    static InterfaceDesc getInterfaceDesc() {
        return {TEST_OFFERS, {0, 2}};
    }
};

static std::atomic<bool> g_isStarted = false;

// Long enough for other threads to come by while the plugin is at work.
static void takeAWhile() {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

static void fillInterface(OfferedInterface& table) {
    table.getEdition = [] { return TEST_EDITION; };
    table.isStarted = [] { return g_isStarted.load(); };
    table.getLogLevel = [] { return __atomic_load_n(&g_vornLogLevel, __ATOMIC_RELAXED); };
    table.warn = [](const char* text) {
        VORN_LOG_FROM("TestPlugin.cpp", logging::kLevelWarn, "%s", text);
    };
}

VORN_EXPORT Version vornGetFrameworkVersion() {
    return TEST_FRAMEWORK;
}

VORN_EXPORT void vornGetPluginDeps(InterfaceDesc** deps, size_t* count) {
    static std::vector<InterfaceDesc> s_deps = {TEST_NEEDS};
    *deps = s_deps.data();
    *count = s_deps.size();
}

VORN_EXPORT void vornOnPluginRegister(Framework* framework, PluginRegistryEntry* entry) {
    takeAWhile();
    static constexpr PluginImplDesc kImpl = {TEST_NAME, "A test", "Vorn",
                                             PluginHotReload::TEST_HOT_RELOAD, "dev"};
    onPluginRegister<OfferedInterface>(framework, entry, kImpl, fillInterface);
#ifdef TEST_TABLE_SIZE
    static PluginRegistryEntry::Interface resized = *entry->interfaces;
    resized.size = TEST_TABLE_SIZE;
    entry->interfaces = &resized;
#endif
}

VORN_EXPORT void vornOnPluginStartup() {
    takeAWhile();
    VORN_LOG_FROM("TestPlugin.cpp", logging::kLevelInfo, "started");
    g_isStarted = true;
}

#ifndef TEST_OMIT_SHUTDOWN
VORN_EXPORT void vornOnPluginShutdown() {
    g_isStarted = false;
    VORN_LOG_FROM("TestPlugin.cpp", logging::kLevelInfo, "stopped");
}
#endif
