// A small plugin in many forms. Compile definitions:
//
//   TEST_NAME         plugin name            TEST_OFFERS   name of its interface, version 0.2
//   TEST_NEEDS        dependencies           TEST_EDITION  what getEdition answers
//   TEST_FRAMEWORK    framework version      TEST_OMIT_SHUTDOWN  leaves that entry point out
//   TEST_HOT_RELOAD   is hot-reloadable      TEST_TABLE_SIZE     size of the table, as told
//
// It logs "started" and "stopped" as infos under its own name.

#include "TestInterface.h"

#include "vorn/PluginUtils.h"

#include <atomic>
#include <chrono>
#include <thread>

#ifndef TEST_FRAMEWORK
#define TEST_FRAMEWORK vorn::kFrameworkVersion
#endif
#ifndef TEST_EDITION
#define TEST_EDITION 1
#endif
#ifdef TEST_HOT_RELOAD
constexpr auto kHotReload = vorn::PluginHotReload::eEnabled;
#else
constexpr auto kHotReload = vorn::PluginHotReload::eDisabled;
#endif

VORN_PLUGIN_GLOBALS(TEST_NAME)

struct OfferedInterface : TestInterface {
    static vorn::InterfaceDesc getInterfaceDesc() {
        return {TEST_OFFERS, {0, 2}};
    }
};

static std::atomic<bool> g_isStarted = false;

static void fillInterface(OfferedInterface& table) {
    table.getEdition = [] { return TEST_EDITION; };
    table.isStarted = [] { return g_isStarted.load(); };
    table.getLogLevel = [] { return __atomic_load_n(&g_vornLogLevel, __ATOMIC_RELAXED); };
    table.warn = [](const char* text) {
        VORN_LOG_FROM("TestPlugin.cpp", vorn::logging::kLevelWarn, "%s", text);
    };
}

VORN_EXPORT vorn::Version vornGetFrameworkVersion() {
    return TEST_FRAMEWORK;
}

VORN_EXPORT void vornGetPluginDeps(vorn::InterfaceDesc** deps, size_t* count) {
#ifdef TEST_NEEDS
    static vorn::InterfaceDesc depends[] = {TEST_NEEDS};
    *deps = depends;
    *count = sizeof(depends) / sizeof(depends[0]);
#else
    vorn::getPluginDepsTyped<>(deps, count);
#endif
}

VORN_EXPORT void vornOnPluginRegister(vorn::Framework* framework,
                                      vorn::PluginRegistryEntry* entry) {
    static constexpr vorn::PluginImplDesc kImpl = {TEST_NAME, "A test", "Vorn", kHotReload, "dev"};
    vorn::onPluginRegister<OfferedInterface>(framework, entry, kImpl, fillInterface);
#ifdef TEST_TABLE_SIZE
    static vorn::PluginRegistryEntry::Interface resized = *entry->interfaces;
    resized.size = TEST_TABLE_SIZE;
    entry->interfaces = &resized;
#endif
}

VORN_EXPORT void vornOnPluginStartup() {
    // Long enough for other threads to come by while the start-up is under way.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    VORN_LOG_FROM("TestPlugin.cpp", vorn::logging::kLevelInfo, "started");
    g_isStarted = true;
}

#ifndef TEST_OMIT_SHUTDOWN
VORN_EXPORT void vornOnPluginShutdown() {
    g_isStarted = false;
    VORN_LOG_FROM("TestPlugin.cpp", vorn::logging::kLevelInfo, "stopped");
}
#endif
