// The table that plugins and applications get, over the one registry of the process. Both are
// there as long as the process: a library that is closed late may still call.
#pragma once

#include "PluginRegistry.h"
#include "vorn/Framework.h"

namespace vorn::host {

Framework& frameworkTable();
PluginRegistry& pluginRegistry();

} // namespace vorn::host
