// The registry's record of one plugin. Guarded by the registry's mutex.
#pragma once

#include "PluginImage.h"
#include "vorn/filesystem/FileSystem.h"

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace vorn::host {

enum class PluginState {
    eUnloaded, // not among the plugins: not yet, or not any more
    eStopped,
    eStarted,
    // Busy: a thread works on it, with the mutex released.
    eLoading,
    eStarting,
    eStopping,
};

struct Plugin {
    std::string name;        // what the file lets expect until the plugin has told
    std::string libraryPath; // empty when there is no file
    std::string label;       // name and origin, for messages
    PluginState state = PluginState::eUnloaded;
    std::thread::id worker;                         // while busy
    std::unique_ptr<PluginImage> image;             // while among the plugins
    std::optional<filesystem::ItemInfo> fileInfo;   // of the library when it was loaded
    std::vector<std::shared_ptr<Plugin>> providers; // who serves its dependencies, while started

    bool isBusy() const {
        return state >= PluginState::eLoading;
    }
    // Started, or on the way to or from it.
    bool isInUse() const {
        return state == PluginState::eStarted || state == PluginState::eStarting ||
               state == PluginState::eStopping;
    }
};

using PluginPtr = std::shared_ptr<Plugin>;

} // namespace vorn::host
