// The file-system service: its table, its plugin, and the forms of its slots that the host's own
// rooms use. Any thread.
#pragma once

#include "vorn/Framework.h"
#include "vorn/filesystem/FileSystem.h"

#include <optional>
#include <string>

namespace vorn::host {

filesystem::FileSystem& fileSystemTable();
const PluginRegistrationDesc& fileSystemPlugin();

// The absolute path without links; empty when there is nothing at path.
std::string canonicalPath(const std::string& path);

// What is at path, or nothing.
std::optional<filesystem::ItemInfo> itemInfo(const std::string& path);

} // namespace vorn::host
