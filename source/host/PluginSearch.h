// Which library files a loading description means.
#pragma once

#include "vorn/Framework.h"

#include <string>
#include <vector>

namespace vorn::host {

// The paths of the matching files, in the order of their names and, for one name, of the search
// paths. A search path that is no directory is logged as a warning. [any thread]
std::vector<std::string> findPluginFiles(const PluginLoadingDesc& desc);

} // namespace vorn::host
