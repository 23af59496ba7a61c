// The C++ face: claims the process for one host, and turns refusals into exceptions.

#include "vorn/host/Host.h"

#include "FileSystemService.h"
#include "FrameworkTable.h"
#include "LoggingService.h"
#include "PluginSearch.h"

#include <algorithm>
#include <atomic>
#include <filesystem>

namespace vorn::host {

static std::atomic<bool> g_isClaimed = false;

// ---- helpers ------------------------------------------------------------------------------------

static void throwIfRefused(const Refusal& refusal) {
    if (refusal) {
        throw HostError(*refusal);
    }
}

// A library of the same file name in an earlier directory hides this one, so that the plugins of a
// build tree and those that are installed can be found side by side.
static bool isHidden(const std::string& file) {
    const auto nameOf = [](const char* path) { return std::filesystem::path(path).filename(); };
    const std::vector<PluginDesc> plugins = pluginRegistry().descriptions();
    return std::any_of(plugins.begin(), plugins.end(), [&](const PluginDesc& plugin) {
        return plugin.libPath && nameOf(plugin.libPath) == nameOf(file.c_str());
    });
}

static void loadDirectory(const std::string& directory) {
    const char* searchPath = directory.c_str();
    PluginLoadingDesc desc = {};
    desc.searchPaths = &searchPath;
    desc.searchPathCount = 1;
    for (const std::string& file : findPluginFiles(desc)) {
        if (isHidden(file)) {
            continue;
        }
        if (const Refusal refusal = pluginRegistry().load(file)) {
            logFromHost(logging::kLevelError, __FILE__, __LINE__, *refusal);
        }
    }
}

// ---- the host -----------------------------------------------------------------------------------

// The time of one host: leaves the process as it was found.
struct Host::Session {
    Session() {
        if (g_isClaimed.exchange(true)) {
            throw HostError("a host cannot be made: expected none in this process, found one");
        }
    }
    ~Session() {
        pluginRegistry().reset();
        LoggingService::instance().forgetAll();
        g_isClaimed = false;
    }
};

Host::Host(const std::vector<std::string>& pluginDirectories, const std::string& clientName)
    : m_clientName(clientName), m_session(std::make_unique<Session>()) {
    throwIfRefused(pluginRegistry().registerByAddress(clientName, LoggingService::plugin()));
    throwIfRefused(pluginRegistry().registerByAddress(clientName, fileSystemPlugin()));
    for (const std::string& directory : pluginDirectories) {
        loadDirectory(directory);
    }
}

Host::~Host() = default;

void* Host::acquire(InterfaceDesc desc, const char* pluginName) {
    const auto acquired = pluginRegistry().acquire(m_clientName, desc, pluginName);
    if (!acquired.table) {
        throw HostError(acquired.refusal);
    }
    return acquired.table;
}

void* Host::tryAcquire(InterfaceDesc desc, const char* pluginName) {
    return pluginRegistry().acquire(m_clientName, desc, pluginName).table;
}

void Host::loadPlugin(const std::string& libraryPath) {
    throwIfRefused(pluginRegistry().load(libraryPath));
}

Framework& Host::framework() {
    return frameworkTable();
}

logging::Logging& Host::logging() {
    return LoggingService::table();
}

} // namespace vorn::host
