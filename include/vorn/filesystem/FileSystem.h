// The file-system service that a host brings along: what it takes to look for plugin libraries
// and to keep copies of them.
//
// Holds for all slots: paths are zero-terminated, in the system's own form, and read during the
// call only; a null path names nothing. Links are followed. No slot logs; what fails answers
// false, 0 or null. [any thread]
#pragma once

#include "../Framework.h"

namespace vorn::filesystem {

// What a path leads to.
enum class ItemType : uint32_t {
    eFile = 0,      // with contents
    eDirectory = 1, // with items
    eOther = 2,     // device, socket, broken link and the like
};

// One file or directory. Two records of one path that differ mean that it was changed or replaced.
struct ItemInfo {
    ItemType type;        // of what the path leads to
    bool isLink;          // the name itself is a link; all other fields tell of what it leads to
    uint64_t fileId;      // differs between two files that exist at the same time
    uint64_t size;        // in bytes
    int64_t modifiedTime; // nanoseconds since 1970-01-01 UTC
};

// Answer for one item of a walk.
enum class WalkAction : uint32_t {
    eContinue = 0, // with the next item
    eStop = 1,     // here
};

// path is the directory's path, a "/", and the item's name; path and info are good for the call.
using OnDirectoryItemFn = WalkAction (*)(const char* path, const ItemInfo* info, void* userData);

// The table. What holds for all of its slots is said at the top of FileSystem.h.
struct FileSystem {
    // Name and version, for acquiring the table.
    static constexpr InterfaceDesc getInterfaceDesc() {
        return {"vorn::filesystem::FileSystem", {0, 1}};
    }

    // Whether there is anything, or a directory, at path.
    bool (*exists)(const char* path);
    bool (*isDirectory)(const char* path);

    // Describes what is at path. False, with info unchanged, when there is nothing.
    bool (*getItemInfo)(const char* path, ItemInfo* info);

    // Writes the absolute path without links, "." and ".." into buffer, zero-terminated, when
    // bufferSize bytes hold it. The result is its length without the terminator whether it fits or
    // not; 0 when there is nothing at path.
    size_t (*getCanonicalPath)(const char* path, char* buffer, size_t bufferSize);

    // The directory of the running program. The service's own string, good as long as the process.
    const char* (*getExecutableDirectoryPath)();

    // Calls onItem for everything in the directory but "." and "..", in the order of the names'
    // bytes, until it answers eStop. What is added or removed meanwhile is not seen. False when
    // path is no directory that can be read.
    bool (*forEachDirectoryItem)(const char* path, OnDirectoryItemFn onItem, void* userData);

    // Creates the directory and those above it that are missing. True when it is there.
    bool (*makeDirectories)(const char* path);

    // Copies contents and permissions of a file, over a file that is at toPath already.
    bool (*copyFile)(const char* fromPath, const char* toPath);

    // Removes a file or a link, never a directory.
    bool (*removeFile)(const char* path);
};

static_assert(sizeof(FileSystem) == 9 * sizeof(void (*)()), "9 slots");

} // namespace vorn::filesystem
