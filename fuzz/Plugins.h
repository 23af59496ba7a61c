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
    const Table* table = plugin.offer<Table>();
    foreign::g_host.calls.clear();
    return *table;
}

} // namespace vorn::fuzz
