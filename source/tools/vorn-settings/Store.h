// The settings store as the tool uses it: host, tables, and the tree of the loaded files in it.
#pragma once

#include "Merging.h"
#include "SettingsPath.h"
#include "Tree.h"

#include <string>
#include <vorn/host/Host.h>
#include <vorn/settings/ISettings.h>

namespace vorn::tool {

class Store {
public:
    // Starts the store. Throws ToolError when its plugins are not to be had.
    Store();

    const IDictionary& idict() const {
        return *m_idict;
    }
    const settings::ISettings& settings() const {
        return *m_settings;
    }

    // The path of a setting in the store.
    static std::string storePath(const SettingsPath& path);

    // The path of a setting in the files, from its item in the store.
    std::string pathText(const Item* item) const;

    // The live item, or null; require throws ToolError instead.
    const Item* find(const SettingsPath& path) const;
    const Item* require(const SettingsPath& path) const;

    // Merges the tree into all settings.
    void merge(const Item* tree, MergeKind kind) const;

    // Makes the value, or the tree, all there is at path.
    void assign(const SettingsPath& path, const Item* value) const;

    // Removes the setting and what is below it. The root loses its children and stays.
    void remove(const SettingsPath& path) const;

private:
    void _merge(const SettingsPath& path, const Item* tree, MergeKind kind) const;

    // Removes what is below target and has no counterpart in source.
    void _removeMissing(const SettingsPath& path, const Item* target, const Item* source) const;
    void _removeChildren(const SettingsPath& path, const Item* item) const;

    host::Host m_host;
    const IDictionary* m_idict;
    const settings::ISettings* m_settings;
};

} // namespace vorn::tool
