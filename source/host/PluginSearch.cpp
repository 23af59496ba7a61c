// The search for plugin files, over the file-system service.

#include "PluginSearch.h"

#include "FileSystemService.h"
#include "LoggingService.h"

#include <algorithm>
#include <filesystem>
#include <fnmatch.h>

namespace vorn::host {

constexpr const char* kDefaultWildcard = "lib*.plugin.so";

static std::string fileNameOf(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

static bool matchesAny(const std::string& name, const char* const* wildcards, size_t count) {
    return wildcards && std::any_of(wildcards, wildcards + count, [&](const char* wildcard) {
               return wildcard && fnmatch(wildcard, name.c_str(), 0) == 0;
           });
}

static bool isMeant(const PluginLoadingDesc& desc, const std::string& name) {
    const bool hasWildcards = desc.loadedFileWildcards && desc.loadedFileWildcardCount > 0;
    const bool isWanted =
        hasWildcards ? matchesAny(name, desc.loadedFileWildcards, desc.loadedFileWildcardCount)
                     : matchesAny(name, &kDefaultWildcard, 1);
    return isWanted &&
           !matchesAny(name, desc.excludedFileWildcards, desc.excludedFileWildcardCount);
}

// One search; its address is the user data of the walk.
struct Search {
    const PluginLoadingDesc& desc;
    std::vector<std::string> files;

    bool searchDirectory(const char* path) {
        return fileSystemTable().forEachDirectoryItem(path, onItem, this);
    }

    static filesystem::WalkAction
    onItem(const char* path, const filesystem::ItemInfo* info, void* userData) {
        Search& search = *static_cast<Search*>(userData);
        switch (info->type) {
        case filesystem::ItemType::eFile:
            if (isMeant(search.desc, fileNameOf(path))) {
                search.files.push_back(path);
            }
            break;
        case filesystem::ItemType::eDirectory:
            // A link may lead back up.
            if (search.desc.searchRecursive && !info->isLink) {
                search.searchDirectory(path);
            }
            break;
        case filesystem::ItemType::eOther:
            break;
        }
        return filesystem::WalkAction::eContinue;
    }
};

std::vector<std::string> findPluginFiles(const PluginLoadingDesc& desc) {
    Search search = {desc, {}};
    const size_t pathCount = desc.searchPaths ? desc.searchPathCount : 0;
    for (size_t i = 0; i < pathCount; ++i) {
        if (!search.searchDirectory(desc.searchPaths[i])) {
            logFromHost(logging::kLevelWarn, __FILE__, __LINE__,
                        std::string("plugins are looked for in ") +
                            (desc.searchPaths[i] ? desc.searchPaths[i] : "(null)") +
                            ": expected a directory, found none that can be read");
        }
    }
    std::stable_sort(search.files.begin(), search.files.end(),
                     [](const std::string& left, const std::string& right) {
                         return fileNameOf(left) < fileNameOf(right);
                     });
    return search.files;
}

} // namespace vorn::host
