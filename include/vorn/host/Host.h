// The embedding API: a host for plugins inside an application.
//
//     vorn::host::Host host;
//     auto* settings = host.acquire<vorn::settings::ISettings>();
//     settings->setInt64("/app/view/width", 1280);
//
// One host per process at a time: plugins share the process-wide Framework table. Tables that
// were acquired are good until the host is destroyed. All members of a host may be called from any
// thread, between its construction and its destruction.
#pragma once

#include "../Framework.h"
#include "../logging/Log.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace vorn::host {

// What went wrong, in a sentence that names the plugin, the file and what was expected.
class HostError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Where the plugins that ship with the library are looked for, in this order: the directories of
// the environment variable VORN_PLUGIN_PATH (separated by ":"); plugins/, ../plugins and
// ../lib/vorn/plugins beside the running program; the directory they were installed in. Only
// directories that exist are named.
std::vector<std::string> defaultPluginDirectories();

// The host of this process: loads plugins, starts those that are asked for, and takes all down.
class Host {
public:
    // Starts the built-in services and loads every lib*.plugin.so of the directories, in that
    // order; of several plugins of one name the first is kept, and a file of the same name in a
    // later directory is passed over. A plugin that is refused is logged and left out. clientName
    // is the name under which this application acquires interfaces. Throws HostError when a host
    // exists already.
    explicit Host(const std::vector<std::string>& pluginDirectories = defaultPluginDirectories(),
                  const std::string& clientName = "application");

    // Shuts the plugins down in the reverse order of their start-up and unloads them.
    ~Host();

    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // The table of an interface, its plugin started with all that it depends on. pluginName
    // chooses among several plugins. acquire throws HostError, tryAcquire answers null.
    template <class Interface>
    Interface* acquire(const char* pluginName = nullptr) {
        return static_cast<Interface*>(acquire(Interface::getInterfaceDesc(), pluginName));
    }
    template <class Interface>
    Interface* tryAcquire(const char* pluginName = nullptr) {
        return static_cast<Interface*>(tryAcquire(Interface::getInterfaceDesc(), pluginName));
    }

    // The same by description.
    void* acquire(InterfaceDesc desc, const char* pluginName);
    void* tryAcquire(InterfaceDesc desc, const char* pluginName);

    // Loads one more plugin from a file. Throws HostError when it is refused.
    void loadPlugin(const std::string& libraryPath);

    // The table that plugins get, and the built-in logging service.
    Framework& framework();
    logging::Logging& logging();

private:
    struct Session;

    std::string m_clientName;
    std::unique_ptr<Session> m_session;
};

} // namespace vorn::host
