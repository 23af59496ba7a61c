// The plugins of the process: which there are, what they offer and need, which are started and in
// what order, and who uses them.
//
// Threads: everything may be called from any thread, and by plugins from their own entry points,
// but for what says otherwise. One mutex guards all data. It is never held while an entry point,
// a library's constructors and destructors, or the logging service run. A thread that loads,
// starts or stops a plugin marks it busy instead; who needs a busy plugin waits for it, unless
// that would be waiting for itself: then it needs something that needs it, and is refused.
#pragma once

#include "Candidate.h"
#include "InterfaceUses.h"
#include "Plugin.h"
#include "Versions.h"
#include "WorkBoard.h"
#include "vorn/Framework.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace vorn::host {

class PluginRegistry {
public:
    // A table, or why there is none.
    struct Acquired {
        void* table = nullptr;
        std::string refusal;
    };

    // framework is the table that plugins are given.
    explicit PluginRegistry(Framework& framework);

    // -- plugins come and go

    // Loads the library; nothing to do when it is loaded already.
    Refusal load(const std::string& libraryPath);
    Refusal registerByAddress(const std::string& client, const PluginRegistrationDesc& desc);
    bool unregister(const std::string& pluginName);

    // Never at the same time as anything else: stops all, newest start first, then unloads all,
    // newest first. reset also forgets defaults and paths that were set.
    void unloadAll();
    void reset();

    // Never at the same time as anything else: loads anew every hot-reloadable library that has
    // changed and that nobody uses. A new version that is refused is returned, and the one before
    // goes on; it is tried again when the file changes again.
    std::vector<std::string> reloadChanged();

    // -- interfaces

    // pluginName may be null.
    Acquired acquire(const std::string& client, InterfaceDesc wanted, const char* pluginName);
    Acquired acquireFromTable(const std::string& client, InterfaceDesc wanted, const void* table);
    Acquired acquireFromLibrary(const std::string& client,
                                InterfaceDesc wanted,
                                const std::string& libraryPath);
    // From every plugin that offers it, at most count, in the order of registration.
    std::vector<Acquired> acquireAll(const std::string& client, InterfaceDesc wanted, size_t count);
    void release(const std::string& client, const void* table);
    bool isServedBy(InterfaceDesc wanted, const void* table) const;

    // Which plugin serves the interface when a client names none. An empty client stands for all
    // clients; an empty plugin name takes the choice back.
    void setDefault(const std::string& client, InterfaceDesc wanted, const std::string& pluginName);

    // -- descriptions, in the order of registration; references are good until the unloading

    std::vector<PluginDesc> descriptions() const;
    std::vector<PluginDesc> descriptionsOffering(InterfaceDesc wanted) const;
    const PluginDesc& description(const char* pluginName) const;
    const PluginDesc& descriptionOfTable(const void* table) const;

    // -- where copies of reloadable libraries go; empty: the system's directory for temporary
    // files. The result is good until reset.

    void setReloadableTempPath(const std::string& path);
    const char* getReloadableTempPath() const;

private:
    using Lock = std::unique_lock<std::mutex>;
    using Work = WorkBoard::Work;

    PluginPtr _find(const std::string& pluginName) const;
    PluginPtr _findFile(const std::string& libraryPath) const;
    PluginPtr _findTable(const void* table) const;
    PluginPtr _choose(const std::string& client, const InterfaceDesc& wanted) const;
    std::string _offersText(const InterfaceDesc& wanted) const;
    bool _isNeededByOthers(const Plugin& plugin) const;

    Refusal _load(Lock& lock, const std::string& libraryPath, PluginPtr& loaded);
    Refusal _admit(Lock& lock,
                   const PluginPtr& plugin,
                   const std::function<std::unique_ptr<Candidate>()>& makeCandidate);
    Refusal _start(Lock& lock, const PluginPtr& plugin);
    Refusal _startProviders(Lock& lock, Plugin& plugin);
    void _shutDown(Lock& lock, const PluginPtr& plugin);
    Refusal _reload(Lock& lock, const PluginPtr& plugin);
    Acquired _acquireFrom(Lock& lock,
                          const PluginPtr& plugin,
                          const std::string& client,
                          const InterfaceDesc& wanted);

    Framework& m_framework; // constant

    mutable std::mutex m_mutex; // guards all below
    WorkBoard m_work;
    std::vector<PluginPtr> m_plugins;    // in the order of registration
    std::vector<PluginPtr> m_startOrder; // the started ones
    bool m_isUnloading = false;
    InterfaceUses m_uses;
    // By client, interface and its major version.
    std::map<std::tuple<std::string, std::string, uint32_t>, std::string> m_defaults;
    // Every path that was set, so that those handed out stay good.
    std::set<std::string> m_tempPaths;
    const std::string* m_tempPath;
};

} // namespace vorn::host
