// Opening and closing of plugin libraries.

#include "PluginLibrary.h"

#include "FileSystemService.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <unistd.h>

namespace vorn::host {

static Refusal unexpected(const std::string& expected, const std::string& found) {
    return "expected " + expected + ", found " + found;
}

Refusal PluginLibrary::open(const std::string& path) {
    if (!fileSystemTable().exists(path.c_str())) {
        return unexpected("a shared library", "no such file");
    }
    m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_handle) {
        return unexpected("a shared library", dlerror());
    }

    std::string missing;
    const auto find = [&](auto& entryPoint, const char* name) {
        entryPoint =
            reinterpret_cast<std::remove_reference_t<decltype(entryPoint)>>(dlsym(m_handle, name));
        if (!entryPoint) {
            missing += (missing.empty() ? "" : ", ") + std::string(name);
        }
    };
    find(m_entryPoints.onPluginRegisterFn, kOnPluginRegisterFnName);
    find(m_entryPoints.getFrameworkVersionFn, kGetFrameworkVersionFnName);
    find(m_entryPoints.getPluginDepsFn, kGetPluginDepsFnName);
    find(m_entryPoints.onPluginStartupFn, kOnPluginStartupFnName);
    find(m_entryPoints.onPluginShutdownFn, kOnPluginShutdownFnName);
    if (!missing.empty()) {
        return unexpected("the entry points " + missing, "no such symbols");
    }
    return {};
}

Refusal PluginLibrary::openCopy(const std::string& path, const std::string& copyDirectory) {
    const filesystem::FileSystem& files = fileSystemTable();
    if (!files.makeDirectories(copyDirectory.c_str())) {
        return unexpected("a directory for a copy of it", "none at " + copyDirectory);
    }
    const std::filesystem::path name = std::filesystem::path(path).filename();
    std::string copyPath = copyDirectory + "/" + name.stem().string() + "-XXXXXX.so";
    const int fileDescriptor = mkstemps(copyPath.data(), 3);
    if (fileDescriptor < 0) {
        return unexpected("room for a copy of it", "no way to create a file in " + copyDirectory);
    }
    close(fileDescriptor);
    m_copyPath = copyPath;
    if (!files.copyFile(path.c_str(), m_copyPath.c_str())) {
        return unexpected("room for a copy of it", "no way to copy it to " + m_copyPath);
    }
    return open(m_copyPath);
}

PluginLibrary::~PluginLibrary() {
    if (m_handle) {
        dlclose(m_handle);
    }
    if (!m_copyPath.empty()) {
        fileSystemTable().removeFile(m_copyPath.c_str());
    }
}

} // namespace vorn::host
