// The slots of the framework table. Each turns the arguments of the contract into those of the
// registry; what the registry refuses is logged here, and by the plain forms only.

#include "FrameworkTable.h"

#include "FileSystemService.h"
#include "LoggingService.h"
#include "PluginSearch.h"

#include <algorithm>

namespace vorn::host {

// ---- helpers ------------------------------------------------------------------------------------

static std::string textOrEmpty(const char* text) {
    return text ? text : "";
}

static void* tableOrError(const PluginRegistry::Acquired& acquired) {
    if (!acquired.table) {
        logFromHost(logging::kLevelError, __FILE__, __LINE__, acquired.refusal);
    }
    return acquired.table;
}

// ---- loading ------------------------------------------------------------------------------------

static void loadPluginsExImpl(const PluginLoadingDesc& desc) {
    for (const std::string& file : findPluginFiles(desc)) {
        if (const Refusal refusal = pluginRegistry().load(file)) {
            logFromHost(logging::kLevelError, __FILE__, __LINE__, *refusal);
        }
    }
}

static void unloadAllPluginsImpl() {
    pluginRegistry().unloadAll();
}

static void tryReloadPluginsImpl() {
    for (const std::string& refusal : pluginRegistry().reloadChanged()) {
        logFromHost(logging::kLevelError, __FILE__, __LINE__, refusal);
    }
}

static bool registerPluginImpl(const char* clientName, const PluginRegistrationDesc& desc) {
    const Refusal refusal = pluginRegistry().registerByAddress(textOrEmpty(clientName), desc);
    if (refusal) {
        logFromHost(logging::kLevelError, __FILE__, __LINE__, *refusal);
    }
    return !refusal;
}

static bool unregisterPluginImpl(const char* pluginName) {
    return pluginRegistry().unregister(textOrEmpty(pluginName));
}

static void setReloadableTempPathImpl(const char* path) {
    pluginRegistry().setReloadableTempPath(textOrEmpty(path));
}

static const char* getReloadableTempPathImpl() {
    return pluginRegistry().getReloadableTempPath();
}

// ---- acquiring ----------------------------------------------------------------------------------

static void* tryAcquireInterfaceWithClientImpl(const char* clientName,
                                               InterfaceDesc desc,
                                               const char* pluginName) {
    return pluginRegistry().acquire(textOrEmpty(clientName), desc, pluginName).table;
}

static void*
acquireInterfaceWithClientImpl(const char* clientName, InterfaceDesc desc, const char* pluginName) {
    return tableOrError(pluginRegistry().acquire(textOrEmpty(clientName), desc, pluginName));
}

static void* tryAcquireInterfaceFromInterfaceWithClientImpl(const char* clientName,
                                                            InterfaceDesc desc,
                                                            const void* otherInterface) {
    return pluginRegistry().acquireFromTable(textOrEmpty(clientName), desc, otherInterface).table;
}

static void* acquireInterfaceFromInterfaceWithClientImpl(const char* clientName,
                                                         InterfaceDesc desc,
                                                         const void* otherInterface) {
    return tableOrError(
        pluginRegistry().acquireFromTable(textOrEmpty(clientName), desc, otherInterface));
}

static void* tryAcquireInterfaceFromLibraryWithClientImpl(const char* clientName,
                                                          InterfaceDesc desc,
                                                          const char* libraryPath) {
    return pluginRegistry()
        .acquireFromLibrary(textOrEmpty(clientName), desc, textOrEmpty(libraryPath))
        .table;
}

static void* acquireInterfaceFromLibraryWithClientImpl(const char* clientName,
                                                       InterfaceDesc desc,
                                                       const char* libraryPath) {
    return tableOrError(pluginRegistry().acquireFromLibrary(textOrEmpty(clientName), desc,
                                                            textOrEmpty(libraryPath)));
}

static uint32_t getInterfacesCountExImpl(InterfaceDesc desc) {
    return static_cast<uint32_t>(pluginRegistry().descriptionsOffering(desc).size());
}

static void acquireInterfacesWithClientImpl(const char* clientName,
                                            InterfaceDesc desc,
                                            void** interfaces,
                                            uint32_t count) {
    const auto all = pluginRegistry().acquireAll(textOrEmpty(clientName), desc, count);
    for (uint32_t i = 0; i < count; ++i) {
        interfaces[i] = i < all.size() ? tableOrError(all[i]) : nullptr;
    }
}

static void releaseInterfaceWithClientImpl(const char* clientName, void* interface) {
    pluginRegistry().release(textOrEmpty(clientName), interface);
}

static void* verifyInterfaceExImpl(InterfaceDesc desc, void* interface) {
    return pluginRegistry().isServedBy(desc, interface) ? interface : nullptr;
}

static void
setDefaultPluginExImpl(const char* clientName, InterfaceDesc desc, const char* pluginName) {
    if (desc.name) {
        pluginRegistry().setDefault(textOrEmpty(clientName), desc, textOrEmpty(pluginName));
    }
}

// ---- descriptions -------------------------------------------------------------------------------

static const PluginDesc& getPluginDescImpl(const char* pluginName) {
    return pluginRegistry().description(pluginName);
}

static const PluginDesc& getInterfacePluginDescImpl(void* interface) {
    return pluginRegistry().descriptionOfTable(interface);
}

static void getCompatiblePluginsImpl(InterfaceDesc desc, PluginDesc* plugins) {
    std::ranges::copy(pluginRegistry().descriptionsOffering(desc), plugins);
}

static size_t getPluginCountImpl() {
    return pluginRegistry().descriptions().size();
}

static void getPluginsImpl(PluginDesc* plugins) {
    std::ranges::copy(pluginRegistry().descriptions(), plugins);
}

static const PluginRegistrationDesc& getBuiltinLoggingDescImpl() {
    return LoggingService::plugin();
}

static const PluginRegistrationDesc& getBuiltinFileSystemDescImpl() {
    return fileSystemPlugin();
}

static const char* getBuildInfoImpl() {
    return VORN_BUILD_INFO;
}

// ---- the table ----------------------------------------------------------------------------------

static Framework g_frameworkTable = {
    .loadPluginsEx = loadPluginsExImpl,
    .unloadAllPlugins = unloadAllPluginsImpl,
    .acquireInterfaceWithClient = acquireInterfaceWithClientImpl,
    .tryAcquireInterfaceWithClient = tryAcquireInterfaceWithClientImpl,
    .acquireInterfaceFromInterfaceWithClient = acquireInterfaceFromInterfaceWithClientImpl,
    .tryAcquireInterfaceFromInterfaceWithClient = tryAcquireInterfaceFromInterfaceWithClientImpl,
    .acquireInterfaceFromLibraryWithClient = acquireInterfaceFromLibraryWithClientImpl,
    .tryAcquireInterfaceFromLibraryWithClient = tryAcquireInterfaceFromLibraryWithClientImpl,
    .getInterfacesCountEx = getInterfacesCountExImpl,
    .acquireInterfacesWithClient = acquireInterfacesWithClientImpl,
    .releaseInterfaceWithClient = releaseInterfaceWithClientImpl,
    .getPluginDesc = getPluginDescImpl,
    .getInterfacePluginDesc = getInterfacePluginDescImpl,
    .getCompatiblePlugins = getCompatiblePluginsImpl,
    .getPluginCount = getPluginCountImpl,
    .getPlugins = getPluginsImpl,
    .tryReloadPlugins = tryReloadPluginsImpl,
    .registerPlugin = registerPluginImpl,
    .unregisterPlugin = unregisterPluginImpl,
    .getBuiltinLoggingDesc = getBuiltinLoggingDescImpl,
    .getBuiltinFileSystemDesc = getBuiltinFileSystemDescImpl,
    .setDefaultPluginEx = setDefaultPluginExImpl,
    .setReloadableTempPath = setReloadableTempPathImpl,
    .getReloadableTempPath = getReloadableTempPathImpl,
    .getBuildInfo = getBuildInfoImpl,
    .verifyInterfaceEx = verifyInterfaceExImpl,
};

Framework& frameworkTable() {
    return g_frameworkTable;
}

PluginRegistry& pluginRegistry() {
    static PluginRegistry& registry = *new PluginRegistry(g_frameworkTable);
    return registry;
}

} // namespace vorn::host
