// One opened plugin library and its five entry points. One thread at a time.
#pragma once

#include "Versions.h"
#include "vorn/Framework.h"

#include <string>

namespace vorn::host {

class PluginLibrary {
public:
    PluginLibrary() = default;
    ~PluginLibrary(); // closes the library; its static destructors run
    PluginLibrary(const PluginLibrary&) = delete;
    PluginLibrary& operator=(const PluginLibrary&) = delete;

    // Opens the file and finds its entry points. The answer says what is wrong with it. REQUIRES:
    // not opened before.
    Refusal open(const std::string& path);

    // The same with a copy in the directory, so that the file may be replaced while the copy is in
    // use. The copy is removed when the library is closed.
    Refusal openCopy(const std::string& path, const std::string& copyDirectory);

    // REQUIRES: opened without a refusal.
    const PluginRegistrationDesc& entryPoints() const {
        return m_entryPoints;
    }

private:
    void* m_handle = nullptr;
    PluginRegistrationDesc m_entryPoints = {};
    std::string m_copyPath;
};

} // namespace vorn::host
