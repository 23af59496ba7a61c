// The registry, bottom up: look-up, loading, starting and stopping, acquiring.

#include "PluginRegistry.h"

#include "FileSystemService.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace vorn::host {

// ---- helpers ------------------------------------------------------------------------------------

// Lets go of the mutex for as long as code of others runs.
class Unlocked {
public:
    explicit Unlocked(std::unique_lock<std::mutex>& lock) : m_lock(lock) {
        m_lock.unlock();
    }
    ~Unlocked() {
        m_lock.lock();
    }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

private:
    std::unique_lock<std::mutex>& m_lock;
};

static std::string unavailableText(const InterfaceDesc& wanted, const std::string& client) {
    return "interface " + toText(wanted) + " is not available to \"" + client + "\": ";
}

static std::string notStartedText(const std::string& label) {
    return label + " cannot be started: ";
}

static std::string systemTempPath() {
    std::error_code error;
    return std::filesystem::temp_directory_path(error).string();
}

PluginRegistry::PluginRegistry(Framework& framework) : m_framework(framework) {
    setReloadableTempPath({});
}

// ---- look-up ------------------------------------------------------------------------------------

// The first plugin that fits, or null.
template <class Fits>
static PluginPtr firstOf(const std::vector<PluginPtr>& plugins, Fits fits) {
    const auto found = std::find_if(plugins.begin(), plugins.end(), fits);
    return found == plugins.end() ? nullptr : *found;
}

PluginPtr PluginRegistry::_find(const std::string& pluginName) const {
    return firstOf(m_plugins, [&](const PluginPtr& plugin) { return plugin->name == pluginName; });
}

PluginPtr PluginRegistry::_findFile(const std::string& libraryPath) const {
    return firstOf(m_plugins,
                   [&](const PluginPtr& plugin) { return plugin->libraryPath == libraryPath; });
}

PluginPtr PluginRegistry::_findTable(const void* table) const {
    return firstOf(m_plugins,
                   [&](const PluginPtr& plugin) { return plugin->image->descOfTable(table); });
}

// The client's default, the default of all, the first one registered.
PluginPtr PluginRegistry::_choose(const std::string& client, const InterfaceDesc& wanted) const {
    if (!wanted.name) {
        return nullptr;
    }
    for (const std::string& chooser : {client, std::string()}) {
        const auto choice = m_defaults.find({chooser, wanted.name, wanted.version.major});
        if (choice != m_defaults.end()) {
            PluginPtr plugin = _find(choice->second);
            if (plugin && plugin->image->tableServing(wanted)) {
                return plugin;
            }
        }
    }
    return firstOf(m_plugins,
                   [&](const PluginPtr& plugin) { return plugin->image->tableServing(wanted); });
}

// Who offers another version of the interface, for the message that the wanted one is not there.
std::string PluginRegistry::_offersText(const InterfaceDesc& wanted) const {
    std::string offers;
    for (const PluginPtr& plugin : m_plugins) {
        const PluginDesc& desc = plugin->image->desc();
        for (size_t i = 0; i < desc.interfaceCount; ++i) {
            if (hasName(desc.interfaces[i], wanted.name)) {
                offers += (offers.empty() ? "" : ", ") + toText(desc.interfaces[i].version) +
                          " of " + plugin->label;
            }
        }
    }
    return offers.empty() ? "none" : offers;
}

// Whether another plugin that is started, or about to be, relies on this one.
bool PluginRegistry::_isNeededByOthers(const Plugin& plugin) const {
    return std::any_of(m_plugins.begin(), m_plugins.end(), [&](const PluginPtr& other) {
        if (other.get() == &plugin || !other->isInUse()) {
            return false;
        }
        const auto isMeant = [&](const PluginPtr& provider) { return provider.get() == &plugin; };
        return std::any_of(other->providers.begin(), other->providers.end(), isMeant) ||
               m_uses.holdsAny(other->name, plugin.image->tables());
    });
}

static bool isSameFile(const filesystem::ItemInfo& info,
                       const std::optional<filesystem::ItemInfo>& earlier) {
    return earlier && info.fileId == earlier->fileId && info.size == earlier->size &&
           info.modifiedTime == earlier->modifiedTime;
}

// ---- loading ------------------------------------------------------------------------------------

Refusal PluginRegistry::load(const std::string& libraryPath) {
    Lock lock(m_mutex);
    PluginPtr loaded;
    return _load(lock, libraryPath, loaded);
}

Refusal PluginRegistry::_load(Lock& lock, const std::string& libraryPath, PluginPtr& loaded) {
    const std::string canonical = canonicalPath(libraryPath);
    const std::string& file = canonical.empty() ? libraryPath : canonical;
    while (!(loaded = _findFile(file))) {
        const PluginPtr inWork = m_work.findOnFile(file);
        if (!inWork) {
            break;
        }
        if (const Refusal refusal = m_work.awaitIdle(lock, inWork)) {
            return "library " + file + " cannot be loaded: " + *refusal;
        }
    }
    if (loaded) {
        return {};
    }

    loaded = std::make_shared<Plugin>();
    loaded->name = pluginNameOfFile(file);
    loaded->libraryPath = file;
    loaded->fileInfo = itemInfo(file);
    return _admit(lock, loaded, [&] {
        auto candidate = std::make_unique<Candidate>(m_framework, file, std::string());
        if (!candidate->refusal() &&
            candidate->image().desc().impl.hotReload == PluginHotReload::eEnabled) {
            // Only now it is known that the file may change under us: start over with a copy.
            candidate.reset();
            candidate = std::make_unique<Candidate>(m_framework, file, getReloadableTempPath());
        }
        return candidate;
    });
}

Refusal PluginRegistry::registerByAddress(const std::string& client,
                                          const PluginRegistrationDesc& desc) {
    Lock lock(m_mutex);
    return _admit(lock, std::make_shared<Plugin>(),
                  [&] { return std::make_unique<Candidate>(m_framework, desc, client); });
}

// Puts a new plugin among the others when it is as it should be and its name is free.
Refusal PluginRegistry::_admit(Lock& lock,
                               const PluginPtr& plugin,
                               const std::function<std::unique_ptr<Candidate>()>& makeCandidate) {
    Work loading(m_work, plugin, PluginState::eLoading);
    std::unique_ptr<Candidate> candidate;
    {
        const Unlocked unlocked(lock);
        candidate = makeCandidate();
    }
    const char* nameTold = candidate->image().desc().impl.name;
    const std::string name = nameTold ? nameTold : "";
    const PluginPtr namesake = _find(name);
    if (!candidate->refusal() && namesake) {
        candidate->refuse("a plugin name not in use", "it taken by " + namesake->label);
    }

    Refusal refusal = candidate->refusal();
    if (!refusal) {
        plugin->name = name;
        plugin->image = candidate->take();
        plugin->label = plugin->image->label();
        m_plugins.push_back(plugin);
        loading.endAs(PluginState::eStopped);
    } else if (nameTold && !namesake) {
        m_uses.takeClient(name);
    }
    const Unlocked unlocked(lock);
    if (!refusal) {
        candidate->confirm();
    }
    candidate.reset();
    return refusal;
}

bool PluginRegistry::unregister(const std::string& pluginName) {
    Lock lock(m_mutex);
    PluginPtr plugin;
    while ((plugin = _find(pluginName)) && plugin->isBusy()) {
        if (m_work.awaitIdle(lock, plugin)) {
            return false;
        }
    }
    if (!plugin || _isNeededByOthers(*plugin)) {
        return false;
    }

    Work unloading(m_work, plugin, PluginState::eStopping);
    unloading.endAs(PluginState::eUnloaded);
    _shutDown(lock, plugin);
    std::erase(m_plugins, plugin);
    m_uses.takeClient(plugin->name);
    m_uses.forgetTables(plugin->image->tables());
    auto image = std::move(plugin->image);
    const Unlocked unlocked(lock);
    image.reset();
    return true;
}

void PluginRegistry::unloadAll() {
    Lock lock(m_mutex);
    m_isUnloading = true;
    while (!m_startOrder.empty()) {
        const PluginPtr plugin = m_startOrder.back();
        Work stopping(m_work, plugin, PluginState::eStopping);
        stopping.endAs(PluginState::eStopped);
        _shutDown(lock, plugin);
    }
    m_isUnloading = false;

    auto plugins = std::exchange(m_plugins, {});
    for (const PluginPtr& plugin : plugins) {
        plugin->state = PluginState::eUnloaded;
    }
    m_uses.clear();
    const Unlocked unlocked(lock);
    while (!plugins.empty()) {
        plugins.pop_back();
    }
}

void PluginRegistry::reset() {
    unloadAll();
    {
        const Lock lock(m_mutex);
        m_defaults.clear();
        m_tempPaths.clear();
    }
    setReloadableTempPath({});
}

std::vector<std::string> PluginRegistry::reloadChanged() {
    Lock lock(m_mutex);
    std::vector<std::string> refusals;
    const std::vector<PluginPtr> plugins = m_plugins;
    for (const PluginPtr& plugin : plugins) {
        if (plugin->image->desc().impl.hotReload != PluginHotReload::eEnabled ||
            plugin->libraryPath.empty() || plugin->isBusy() || _isNeededByOthers(*plugin) ||
            m_uses.isAnyHeld(plugin->image->tables())) {
            continue;
        }
        const auto fileInfo = itemInfo(plugin->libraryPath);
        if (!fileInfo || isSameFile(*fileInfo, plugin->fileInfo)) {
            continue;
        }
        plugin->fileInfo = fileInfo;
        if (const Refusal refusal = _reload(lock, plugin)) {
            refusals.push_back(*refusal);
        }
    }
    return refusals;
}

// The old library stays as it is until the new one is known to be good. When it is closed, the log
// source that it unregisters is the new one's already, and stays.
Refusal PluginRegistry::_reload(Lock& lock, const PluginPtr& plugin) {
    Work reloading(m_work, plugin, PluginState::eLoading);
    const InterfaceUses::TableCounts usesBefore = m_uses.takeClient(plugin->name);
    const std::string copyDirectory = *m_tempPath;
    std::unique_ptr<Candidate> candidate;
    {
        const Unlocked unlocked(lock);
        candidate = std::make_unique<Candidate>(m_framework, plugin->libraryPath, copyDirectory);
    }
    if (!candidate->refusal() && candidate->image().desc().impl.name != plugin->name) {
        candidate->refuse("the name of what it replaces, " + plugin->name, "another one");
    }
    if (Refusal refusal = candidate->refusal()) {
        m_uses.takeClient(plugin->name);
        m_uses.putClient(plugin->name, usesBefore);
        const Unlocked unlocked(lock);
        candidate.reset();
        return refusal;
    }

    _shutDown(lock, plugin);
    m_uses.forgetTables(plugin->image->tables());
    auto replaced = std::exchange(plugin->image, candidate->take());
    reloading.endAs(PluginState::eStopped);
    const Unlocked unlocked(lock);
    candidate->confirm();
    replaced.reset();
    candidate.reset();
    return {};
}

// ---- starting and stopping ----------------------------------------------------------------------

Refusal PluginRegistry::_start(Lock& lock, const PluginPtr& plugin) {
    if (Refusal refusal = m_work.awaitIdle(lock, plugin)) {
        return refusal;
    }
    if (plugin->state == PluginState::eStarted) {
        return {};
    }
    if (plugin->state == PluginState::eUnloaded || m_isUnloading) {
        return notStartedText(plugin->label) + "expected it to stay loaded, found it unloading";
    }

    Work starting(m_work, plugin, PluginState::eStarting);
    if (const Refusal refusal = _startProviders(lock, *plugin)) {
        plugin->providers.clear();
        return notStartedText(plugin->label) + *refusal;
    }
    {
        const Unlocked unlocked(lock);
        plugin->image->entryPoints().onPluginStartupFn();
    }
    m_startOrder.push_back(plugin);
    starting.endAs(PluginState::eStarted);
    return {};
}

Refusal PluginRegistry::_startProviders(Lock& lock, Plugin& plugin) {
    const PluginDesc& desc = plugin.image->desc();
    for (size_t i = 0; i < desc.dependencyCount; ++i) {
        const InterfaceDesc& dependency = desc.dependencies[i];
        const PluginPtr provider = _choose(plugin.name, dependency);
        if (!provider) {
            return "expected a plugin that offers its dependency " + toText(dependency) +
                   ", found " + _offersText(dependency);
        }
        plugin.providers.push_back(provider);
        if (Refusal refusal = _start(lock, provider)) {
            return refusal;
        }
    }
    return {};
}

// Nothing to do for a plugin that is not started. REQUIRES: this thread works on the plugin.
void PluginRegistry::_shutDown(Lock& lock, const PluginPtr& plugin) {
    const auto started = std::find(m_startOrder.begin(), m_startOrder.end(), plugin);
    if (started == m_startOrder.end()) {
        return;
    }
    m_startOrder.erase(started);
    {
        const Unlocked unlocked(lock);
        plugin->image->entryPoints().onPluginShutdownFn();
    }
    plugin->providers.clear();
}

// ---- acquiring ----------------------------------------------------------------------------------

PluginRegistry::Acquired
PluginRegistry::acquire(const std::string& client, InterfaceDesc wanted, const char* pluginName) {
    Lock lock(m_mutex);
    const PluginPtr plugin = pluginName ? _find(pluginName) : _choose(client, wanted);
    if (!plugin) {
        const std::string expectation =
            pluginName ? "expected plugin \"" + std::string(pluginName) + "\", found none"
                       : "expected a plugin that offers it, found " + _offersText(wanted);
        return {nullptr, unavailableText(wanted, client) + expectation};
    }
    return _acquireFrom(lock, plugin, client, wanted);
}

PluginRegistry::Acquired PluginRegistry::acquireFromTable(const std::string& client,
                                                          InterfaceDesc wanted,
                                                          const void* table) {
    Lock lock(m_mutex);
    const PluginPtr plugin = _findTable(table);
    if (!plugin) {
        return {nullptr, unavailableText(wanted, client) +
                             "expected the table of another interface, found none of a plugin"};
    }
    return _acquireFrom(lock, plugin, client, wanted);
}

PluginRegistry::Acquired PluginRegistry::acquireFromLibrary(const std::string& client,
                                                            InterfaceDesc wanted,
                                                            const std::string& libraryPath) {
    Lock lock(m_mutex);
    PluginPtr plugin;
    if (const Refusal refusal = _load(lock, libraryPath, plugin)) {
        return {nullptr, unavailableText(wanted, client) + *refusal};
    }
    return _acquireFrom(lock, plugin, client, wanted);
}

PluginRegistry::Acquired PluginRegistry::_acquireFrom(Lock& lock,
                                                      const PluginPtr& plugin,
                                                      const std::string& client,
                                                      const InterfaceDesc& wanted) {
    if (const Refusal refusal = m_work.awaitIdle(lock, plugin)) {
        return {nullptr,
                unavailableText(wanted, client) + notStartedText(plugin->label) + *refusal};
    }
    if (plugin->image && !plugin->image->tableServing(wanted)) {
        return {nullptr, unavailableText(wanted, client) + "expected " + plugin->label +
                             " to offer it, found " + _offersText(wanted)};
    }
    if (const Refusal refusal = _start(lock, plugin)) {
        return {nullptr, unavailableText(wanted, client) + *refusal};
    }
    const void* table = plugin->image->tableServing(wanted);
    m_uses.add(client, table);
    return {const_cast<void*>(table), {}};
}

std::vector<PluginRegistry::Acquired>
PluginRegistry::acquireAll(const std::string& client, InterfaceDesc wanted, size_t count) {
    Lock lock(m_mutex);
    std::vector<PluginPtr> plugins = m_plugins;
    std::erase_if(plugins,
                  [&](const PluginPtr& plugin) { return !plugin->image->tableServing(wanted); });
    plugins.resize(std::min(count, plugins.size()));
    std::vector<Acquired> acquired;
    acquired.reserve(plugins.size());
    for (const PluginPtr& plugin : plugins) {
        acquired.push_back(_acquireFrom(lock, plugin, client, wanted));
    }
    return acquired;
}

void PluginRegistry::release(const std::string& client, const void* table) {
    const Lock lock(m_mutex);
    m_uses.release(client, table);
}

bool PluginRegistry::isServedBy(InterfaceDesc wanted, const void* table) const {
    const Lock lock(m_mutex);
    const PluginPtr plugin = _findTable(table);
    return plugin && serves(*plugin->image->descOfTable(table), wanted);
}

void PluginRegistry::setDefault(const std::string& client,
                                InterfaceDesc wanted,
                                const std::string& pluginName) {
    const Lock lock(m_mutex);
    const auto key = std::make_tuple(client, std::string(wanted.name), wanted.version.major);
    if (pluginName.empty()) {
        m_defaults.erase(key);
    } else {
        m_defaults[key] = pluginName;
    }
}

// ---- descriptions and paths ---------------------------------------------------------------------

static constexpr PluginDesc kNoPluginDesc = {};

std::vector<PluginDesc> PluginRegistry::descriptions() const {
    const Lock lock(m_mutex);
    std::vector<PluginDesc> descriptions;
    descriptions.reserve(m_plugins.size());
    for (const PluginPtr& plugin : m_plugins) {
        descriptions.push_back(plugin->image->desc());
    }
    return descriptions;
}

std::vector<PluginDesc> PluginRegistry::descriptionsOffering(InterfaceDesc wanted) const {
    const Lock lock(m_mutex);
    std::vector<PluginDesc> descriptions;
    for (const PluginPtr& plugin : m_plugins) {
        if (plugin->image->tableServing(wanted)) {
            descriptions.push_back(plugin->image->desc());
        }
    }
    return descriptions;
}

const PluginDesc& PluginRegistry::description(const char* pluginName) const {
    const Lock lock(m_mutex);
    const PluginPtr plugin = pluginName ? _find(pluginName) : nullptr;
    return plugin ? plugin->image->desc() : kNoPluginDesc;
}

const PluginDesc& PluginRegistry::descriptionOfTable(const void* table) const {
    const Lock lock(m_mutex);
    const PluginPtr plugin = _findTable(table);
    return plugin ? plugin->image->desc() : kNoPluginDesc;
}

void PluginRegistry::setReloadableTempPath(const std::string& path) {
    const Lock lock(m_mutex);
    m_tempPath = &*m_tempPaths.insert(path.empty() ? systemTempPath() : path).first;
}

const char* PluginRegistry::getReloadableTempPath() const {
    const Lock lock(m_mutex);
    return m_tempPath->c_str();
}

} // namespace vorn::host
