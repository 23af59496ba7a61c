// The two plugins, loaded once per process by the foreign host of the tests.
#pragma once

#include "Host.h"

#include <vorn/dictionary/IDictionary.h>
#include <vorn/settings/ISettings.h>

namespace vorn::fuzz {

// Loads the plugin and gives its one table.
template <class Table>
const Table& loadTable(foreign::Plugin& plugin, const char* name) {
    plugin.load("libvorn." + std::string(name) + ".plugin.so");
    foreign::RegistryEntry entry{};
    plugin.registerPlugin(&foreign::g_framework, &entry);
    foreign::g_host.calls.clear();
    return *static_cast<const Table*>(entry.interfaces[0].ptr);
}

} // namespace vorn::fuzz
