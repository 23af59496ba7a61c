// A host built elsewhere, against the records of the contract instead of the project's own headers:
// finds plugins by file name and entry points by symbol, serves the framework and logging tables,
// and writes down what it was asked.
#pragma once

#include "../../contract/0.4/vorn_0_4.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace foreign {

using IDictionary = V04IDictionary;
using ISettings = V04ISettings;
using Item = V04Item;
using ItemType = V04ItemType;
using UpdateAction = V04UpdateAction;
constexpr ItemType eBool = kV04Bool, eInt = kV04Int, eFloat = kV04Float, eString = kV04String,
                   eDictionary = kV04Dictionary, eCount = kV04Count;
constexpr UpdateAction eOverwrite = kV04Overwrite, eKeep = kV04Keep;

using Lines = std::vector<std::string>;
const std::string kSettingsName = "vorn.settings.plugin";

struct Host {
    const IDictionary* dictionary = nullptr; // what acquiring the service yields
    bool hasLogging = true;
    Lines calls;        // acquisitions, log sources and calls of the recording dictionary
    int pauseDepth = 0; // calls are not written down while above 0
    Lines log;          // "level text" of the settings store
    std::set<std::string> logPlaces;                 // "file:line" of the reporting statements
    std::map<std::string, V04SetLogLevelFn> sources; // registered, with their level callback
};
inline Host g_host;

// While one lives, the test itself looks around in the tree.
struct Unrecorded {
    Unrecorded() {
        ++g_host.pauseDepth;
    }
    ~Unrecorded() {
        --g_host.pauseDepth;
    }
};

inline std::string join(const Lines& lines, const char* separator) {
    std::string text;
    for (const std::string& line : lines) {
        text += (&line == lines.data() ? "" : separator) + line;
    }
    return text;
}

inline std::string show(V04InterfaceDesc desc) {
    return std::string(desc.name) + " " + std::to_string(desc.version.major) + "." +
           std::to_string(desc.version.minor);
}

// "/a/b" for a node of the settings, "<root>" or "<root>/a/b" for others, "null".
inline std::string describe(const IDictionary& dictionary, const Item* item) {
    const Unrecorded pause;
    if (!item) {
        return "null";
    }
    std::string path;
    while (const Item* parent = dictionary.getItemParent(item)) {
        path = "/" + std::string(dictionary.getItemName(item)) + path;
        item = parent;
    }
    const std::string root = dictionary.getItemName(item);
    return root == "<ISettings root>" && !path.empty() ? path : root + path;
}

inline void
log(const char* source, int32_t level, const char* file, int line, const char* format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    if (source == kSettingsName) {
        g_host.log.push_back(std::to_string(level) + " " + text);
        g_host.logPlaces.insert(file + (":" + std::to_string(line)));
    }
}

inline void registerSource(const char* source, V04SetLogLevelFn callback) {
    g_host.calls.push_back("registerSource(" + std::string(source) + ")");
    g_host.sources[source] = callback;
}

inline void unregisterSource(const char* source) {
    g_host.calls.push_back("unregisterSource(" + std::string(source) + ")");
    g_host.sources.erase(source);
}
inline const V04Logging kLogging = [] {
    V04Logging table{};
    table.log = log;
    table.registerSource = registerSource;
    table.unregisterSource = unregisterSource;
    return table;
}();

template <bool isTry>
void* acquire(const char* client, V04InterfaceDesc desc, const char* plugin) {
    g_host.calls.push_back(std::string(isTry ? "tryAcquire(" : "acquire(") + client + ", " +
                           show(desc) + ", " + (plugin ? plugin : "null") + ")");
    const std::string name = desc.name;
    const void* table = name == "vorn::dictionary::IDictionary" ? g_host.dictionary : nullptr;
    if (name == "vorn::logging::Logging" && g_host.hasLogging) {
        table = &kLogging;
    }
    return const_cast<void*>(table);
}
inline V04Framework g_framework = [] {
    V04Framework table{};
    table.acquireInterfaceWithClient = acquire<false>;
    table.tryAcquireInterfaceWithClient = acquire<true>;
    return table;
}();

struct Plugin {
    void* library = nullptr;
    V04OnPluginRegisterFn registerPlugin;
    V04GetFrameworkVersionFn getFrameworkVersion;
    V04GetPluginDepsFn getDeps;
    V04OnPluginStartupFn startup;
    V04OnPluginShutdownFn shutdown;
    V04PluginRegistryEntry entry{};

    // Ends the process when the file or an entry point is missing.
    void load(const std::string& fileName) {
        library = dlopen((VORN_TEST_PLUGIN_DIR "/" + fileName).c_str(), RTLD_NOW | RTLD_LOCAL);
        const auto find = [&](auto& function, const char* name) {
            void* const address = library ? dlsym(library, name) : nullptr;
            if (!address) {
                fprintf(stderr, "%s: %s: %s\n", fileName.c_str(), name, dlerror());
                abort();
            }
            function = reinterpret_cast<std::decay_t<decltype(function)>>(address);
        };
        find(registerPlugin, "vornOnPluginRegister");
        find(getFrameworkVersion, "vornGetFrameworkVersion");
        find(getDeps, "vornGetPluginDeps");
        find(startup, "vornOnPluginStartup");
        find(shutdown, "vornOnPluginShutdown");
    }
    // Registers it; its one table.
    template <class Table>
    const Table* offer() {
        registerPlugin(&g_framework, &entry);
        return static_cast<const Table*>(entry.interfaces->ptr);
    }
    void unload() {
        dlclose(library);
        library = nullptr;
    }
};

// Lines of /proc/self/maps that contain the text.
inline size_t countMappings(const std::string& text) {
    std::ifstream maps("/proc/self/maps");
    size_t count = 0;
    for (std::string line; std::getline(maps, line);) {
        count += line.find(text) != std::string::npos;
    }
    return count;
}

} // namespace foreign
