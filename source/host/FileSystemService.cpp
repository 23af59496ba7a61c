// The file-system service over the system's calls. Without state but for the directory of the
// running program, which is found once.

#include "FileSystemService.h"

#include "BuiltinPlugin.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace vorn::host {

using filesystem::FileSystem;
using filesystem::ItemInfo;
using filesystem::ItemType;
using filesystem::WalkAction;

// ---- operations ---------------------------------------------------------------------------------

static bool getItemInfoImpl(const char* path, ItemInfo* info) {
    struct stat own;
    if (!path || lstat(path, &own) != 0) {
        return false;
    }
    struct stat target = own;
    if (S_ISLNK(own.st_mode)) {
        stat(path, &target); // a broken link is described as itself
    }
    *info = {
        .type = S_ISREG(target.st_mode)   ? ItemType::eFile
                : S_ISDIR(target.st_mode) ? ItemType::eDirectory
                                          : ItemType::eOther,
        .isLink = S_ISLNK(own.st_mode),
        .fileId = target.st_ino,
        .size = static_cast<uint64_t>(target.st_size),
        .modifiedTime = int64_t{target.st_mtim.tv_sec} * 1'000'000'000 + target.st_mtim.tv_nsec,
    };
    return true;
}

static bool existsImpl(const char* path) {
    return path && access(path, F_OK) == 0;
}

static bool isDirectoryImpl(const char* path) {
    ItemInfo info;
    return getItemInfoImpl(path, &info) && info.type == ItemType::eDirectory;
}

static size_t getCanonicalPathImpl(const char* path, char* buffer, size_t bufferSize) {
    const std::unique_ptr<char, void (*)(void*)> canonical(path ? realpath(path, nullptr) : nullptr,
                                                           std::free);
    if (!canonical) {
        return 0;
    }
    const size_t length = std::strlen(canonical.get());
    if (buffer && length < bufferSize) {
        std::memcpy(buffer, canonical.get(), length + 1);
    }
    return length;
}

static const char* getExecutableDirectoryPathImpl() {
    static const std::string& directory = *new std::string([] {
        std::error_code error;
        return std::filesystem::read_symlink("/proc/self/exe", error).parent_path().string();
    }());
    return directory.c_str();
}

static bool
forEachDirectoryItemImpl(const char* path, filesystem::OnDirectoryItemFn onItem, void* userData) {
    std::error_code error;
    std::set<std::string> names;
    for (std::filesystem::directory_iterator item(path ? path : "", error), end;
         !error && item != end; item.increment(error)) {
        names.insert(item->path().filename().string());
    }
    if (error) {
        return false;
    }
    for (const std::string& name : names) {
        const std::string itemPath = std::string(path) + "/" + name;
        ItemInfo info;
        if (getItemInfoImpl(itemPath.c_str(), &info) &&
            onItem(itemPath.c_str(), &info, userData) == WalkAction::eStop) {
            break;
        }
    }
    return true;
}

static bool makeDirectoriesImpl(const char* path) {
    std::error_code error;
    std::filesystem::create_directories(path ? path : "", error);
    return isDirectoryImpl(path);
}

static bool copyFileImpl(const char* fromPath, const char* toPath) {
    std::error_code error;
    return fromPath && toPath &&
           std::filesystem::copy_file(fromPath, toPath,
                                      std::filesystem::copy_options::overwrite_existing, error);
}

static bool removeFileImpl(const char* path) {
    return path && unlink(path) == 0;
}

// ---- the table and its plugin -------------------------------------------------------------------

static FileSystem g_fileSystemTable = {
    .exists = existsImpl,
    .isDirectory = isDirectoryImpl,
    .getItemInfo = getItemInfoImpl,
    .getCanonicalPath = getCanonicalPathImpl,
    .getExecutableDirectoryPath = getExecutableDirectoryPathImpl,
    .forEachDirectoryItem = forEachDirectoryItemImpl,
    .makeDirectories = makeDirectoriesImpl,
    .copyFile = copyFileImpl,
    .removeFile = removeFileImpl,
};

static constexpr PluginImplDesc kFileSystemPluginImpl = {
    .name = "vorn.filesystem.plugin",
    .description = "Files and directories of the system",
    .author = "Vorn",
    .hotReload = PluginHotReload::eDisabled,
    .build = VORN_BUILD_INFO,
};

FileSystem& fileSystemTable() {
    return g_fileSystemTable;
}

const PluginRegistrationDesc& fileSystemPlugin() {
    static constexpr PluginRegistrationDesc kPlugin =
        builtinPlugin<g_fileSystemTable, kFileSystemPluginImpl>();
    return kPlugin;
}

// ---- for the host's own rooms -------------------------------------------------------------------

std::string canonicalPath(const std::string& path) {
    const size_t length = g_fileSystemTable.getCanonicalPath(path.c_str(), nullptr, 0);
    std::string canonical(length, '\0');
    // A path that was replaced by a longer one in between counts as gone.
    if (g_fileSystemTable.getCanonicalPath(path.c_str(), canonical.data(), length + 1) != length) {
        return {};
    }
    return canonical;
}

std::optional<ItemInfo> itemInfo(const std::string& path) {
    ItemInfo info;
    return g_fileSystemTable.getItemInfo(path.c_str(), &info) ? std::optional(info) : std::nullopt;
}

} // namespace vorn::host
