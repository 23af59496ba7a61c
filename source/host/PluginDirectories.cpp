// Where the plugins that ship with the library are looked for.

#include "FileSystemService.h"
#include "vorn/host/Host.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace vorn::host {

std::vector<std::string> defaultPluginDirectories() {
    std::vector<std::string> directories;
    const auto addIfDirectory = [&](const std::string& path) {
        const std::string directory = canonicalPath(path);
        if (fileSystemTable().isDirectory(directory.c_str()) &&
            std::find(directories.begin(), directories.end(), directory) == directories.end()) {
            directories.push_back(directory);
        }
    };

    if (const char* variable = secure_getenv("VORN_PLUGIN_PATH")) {
        std::string_view rest = variable;
        while (!rest.empty()) {
            const std::string_view path = rest.substr(0, rest.find(':'));
            addIfDirectory(std::string(path));
            rest.remove_prefix(std::min(path.size() + 1, rest.size()));
        }
    }
    const std::string programDirectory = fileSystemTable().getExecutableDirectoryPath();
    addIfDirectory(programDirectory + "/plugins");
    addIfDirectory(programDirectory + "/../plugins");
    addIfDirectory(programDirectory + "/../lib/vorn/plugins");
    addIfDirectory(VORN_INSTALLED_PLUGIN_DIR);
    return directories;
}

} // namespace vorn::host
