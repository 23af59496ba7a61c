// A small plugin in many forms, as its compile definitions say: TEST_NAME, its name; TEST_OFFERS,
// that of its interface, version 0.2; TEST_NEEDS, dependencies; TEST_EDITION, what getEdition
// answers; TEST_FRAMEWORK, framework version; TEST_HOT_RELOAD, eEnabled or eDisabled;
// TEST_IS_UNFINISHED leaves start-up and shut-down out.
//
// It logs "started" and "stopped" as infos under its own name. Registering and starting take long
// enough for other threads to come by.

#include "TestInterface.h"

#include "vorn/PluginUtils.h"

#include <atomic>
#include <unistd.h>
#include <vector>

using namespace vorn;

VORN_PLUGIN_GLOBALS(TEST_NAME)

struct OfferedInterface : TestInterface {
    static InterfaceDesc getInterfaceDesc() {
        return {TEST_OFFERS, {0, 2}};
    }
};

static std::atomic<bool> g_isStarted = false;

VORN_EXPORT Version vornGetFrameworkVersion() {
    return TEST_FRAMEWORK;
}

VORN_EXPORT void vornGetPluginDeps(InterfaceDesc** deps, size_t* count) {
    static std::vector<InterfaceDesc> s_deps = {TEST_NEEDS};
    *deps = s_deps.data();
    *count = s_deps.size();
}

VORN_EXPORT void vornOnPluginRegister(Framework* framework, PluginRegistryEntry* entry) {
    usleep(1000);
    static constexpr PluginImplDesc kImpl = {TEST_NAME, "A test", "Vorn",
                                             PluginHotReload::TEST_HOT_RELOAD, "dev"};
    onPluginRegister<OfferedInterface>(framework, entry, kImpl, [](OfferedInterface& table) {
        table.getEdition = [] { return TEST_EDITION; };
        table.isStarted = [] { return g_isStarted.load(); };
    });
}

#ifndef TEST_IS_UNFINISHED
VORN_EXPORT void vornOnPluginStartup() {
    usleep(1000);
    VORN_LOG_FROM("TestPlugin.cpp", logging::kLevelInfo, "started");
    g_isStarted = true;
}

VORN_EXPORT void vornOnPluginShutdown() {
    g_isStarted = false;
    VORN_LOG_FROM("TestPlugin.cpp", logging::kLevelInfo, "stopped");
}
#endif
