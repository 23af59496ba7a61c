// What a plugin needs to be one: its client globals, the body of registration, the dependency
// list, and the scoped client of the host's logging and profiler services.
//
// A plugin's main source file writes, at global scope,
//
//     VORN_PLUGIN_GLOBALS("my.plugin")
//     void fillInterface(my::Interface& iface) { iface = kMyTable; }
//
// and builds its five entry points from onPluginRegister and getPluginDepsTyped.
#pragma once

#include "Defines.h"
#include "Framework.h"
#include "logging/Log.h"
#include "profiler/Profile.h"

// Defines the client globals of a plugin; used once per library, at global scope.
#define VORN_PLUGIN_GLOBALS(clientName)                                                            \
    vorn::Framework* g_vornFramework = nullptr;                                                    \
    const char* g_vornClientName = clientName;                                                     \
    vorn::logging::Logging* g_vornLogging = nullptr;                                               \
    vorn::logging::LogFn g_vornLogFn = nullptr;                                                    \
    int32_t g_vornLogLevel = vorn::logging::kLevelInfo;                                            \
    vorn::profiler::Profiler* g_vornProfiler = nullptr;

namespace vorn {

// Client of the host's optional services from construction to destruction.
class PluginInitializerScoped {
public:
    PluginInitializerScoped() {
        logging::registerLoggingForClient();
        profiler::registerProfilerForClient();
    }
    ~PluginInitializerScoped() {
        profiler::deregisterProfilerForClient();
        logging::deregisterLoggingForClient();
    }
    PluginInitializerScoped(const PluginInitializerScoped&) = delete;
    PluginInitializerScoped& operator=(const PluginInitializerScoped&) = delete;
};

// Body of vornOnPluginRegister for a plugin of one interface. fillTable copies the plugin's table
// into the record that the host is given. May run any number of times; the services are acquired
// by the first run only and let go when the library is unloaded.
template <class InterfaceType>
void onPluginRegister(Framework* framework,
                      PluginRegistryEntry* entry,
                      const PluginImplDesc& implDesc,
                      void (*fillTable)(InterfaceType&)) {
    static PluginRegistryEntry::Interface s_interfaces[1];
    static InterfaceType s_pluginInterface;

    fillTable(s_pluginInterface);
    s_interfaces[0].desc = InterfaceType::getInterfaceDesc();
    s_interfaces[0].ptr = &s_pluginInterface;
    s_interfaces[0].size = sizeof(InterfaceType);

    entry->interfaces = s_interfaces;
    entry->interfaceCount = 1;
    entry->implDesc = implDesc;

    g_vornFramework = framework;
    g_vornClientName = implDesc.name;

    static PluginInitializerScoped s_initializer;
}

// Body of vornGetPluginDeps: the interfaces that must be acquirable before start-up. The array is
// the plugin's and the same on every call.
template <class... Interfaces>
void getPluginDepsTyped(InterfaceDesc** deps, size_t* count) {
    static InterfaceDesc depends[] = {Interfaces::getInterfaceDesc()...};
    *deps = depends;
    *count = sizeof...(Interfaces);
}

// The same for a plugin that depends on nothing.
template <>
inline void getPluginDepsTyped<>(InterfaceDesc** deps, size_t* count) {
    *deps = nullptr;
    *count = 0;
}

} // namespace vorn
