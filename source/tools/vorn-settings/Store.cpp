// The store under the tool.
#include "Store.h"

#include "ToolError.h"

#include <algorithm>

namespace vorn::tool {

namespace {

// The files' settings live below one node of the store, because a subscription to the store's own
// root is never called: one to this node hears of every setting.
constexpr const char* kFilesRoot = "/files";

template <class Interface>
const Interface* acquire(host::Host& host) {
    try {
        return host.acquire<Interface>();
    } catch (const host::HostError& error) {
        throw ToolError(ExitCode::eBadInput, "cannot start the settings store", error.what(),
                        "expected the plugins beside the program or in VORN_PLUGIN_PATH");
    }
}

} // namespace

Store::Store()
    : m_host(host::defaultPluginDirectories(), "vorn-settings"),
      m_idict(acquire<IDictionary>(m_host)), m_settings(acquire<settings::ISettings>(m_host)) {
    m_settings->setDictionary(kFilesRoot);
}

std::string Store::storePath(const SettingsPath& path) {
    return path.isRoot() ? kFilesRoot : kFilesRoot + path.text();
}

std::string Store::pathText(const Item* item) const {
    const Item* root = find(SettingsPath());
    std::vector<const char*> names;
    for (; item && item != root; item = m_idict->getItemParent(item)) {
        names.push_back(m_idict->getItemName(item));
    }
    std::string text = "/";
    std::for_each(names.rbegin(), names.rend(),
                  [&text](const char* name) { text = childPathText(text, name); });
    return text;
}

const Item* Store::find(const SettingsPath& path) const {
    // The item is the store's and does not point into the path.
    // cppcheck-suppress returnDanglingLifetime
    return m_settings->getSettingsDictionary(storePath(path).c_str());
}

const Item* Store::require(const SettingsPath& path) const {
    const Item* item = find(path);
    if (!item) {
        throw ToolError(ExitCode::eNotFound, "no such setting", path.text(),
                        "expected a path that list -r shows");
    }
    return item;
}

void Store::merge(const Item* tree, MergeKind kind) const {
    _merge(SettingsPath(), tree, kind);
}

void Store::_merge(const SettingsPath& path, const Item* tree, MergeKind kind) const {
    MergePolicy policy(*m_idict, kind, tree);
    m_settings->update(storePath(path).c_str(), tree, nullptr, MergePolicy::decide, &policy);
}

void Store::assign(const SettingsPath& path, const Item* value) const {
    const std::string target = storePath(path);
    _removeMissing(path, find(path), value);
    switch (m_idict->getItemType(value)) {
    case ItemType::eBool:
        m_settings->setBool(target.c_str(), m_idict->getAsBool(value));
        break;
    case ItemType::eInt:
        m_settings->setInt64(target.c_str(), m_idict->getAsInt64(value));
        break;
    case ItemType::eFloat:
        m_settings->setFloat64(target.c_str(), m_idict->getAsFloat64(value));
        break;
    case ItemType::eString:
        m_settings->setString(target.c_str(), m_idict->getStringBuffer(value));
        break;
    case ItemType::eDictionary:
        if (m_settings->getItemType(target.c_str()) != ItemType::eDictionary) {
            m_settings->setDictionary(target.c_str());
        }
        _merge(path, value, MergeKind::eDifferent);
        break;
    case ItemType::eCount:
        break;
    }
}

void Store::remove(const SettingsPath& path) const {
    if (path.isRoot()) {
        _removeChildren(path, find(path));
    } else {
        m_settings->destroyItem(storePath(path).c_str());
    }
}

void Store::_removeMissing(const SettingsPath& path, const Item* target, const Item* source) const {
    if (!isDictionary(*m_idict, source)) {
        _removeChildren(path, target);
        return;
    }
    for (const Item* child : childrenOf(*m_idict, target)) {
        const char* name = m_idict->getItemName(child);
        const SettingsPath childPath = path.child(name);
        if (const Item* counterpart = m_idict->getItem(source, name)) {
            _removeMissing(childPath, child, counterpart);
        } else {
            remove(childPath);
        }
    }
}

void Store::_removeChildren(const SettingsPath& path, const Item* item) const {
    for (const Item* child : childrenOf(*m_idict, item)) {
        remove(path.child(m_idict->getItemName(child)));
    }
}

} // namespace vorn::tool
