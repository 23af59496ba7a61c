// The contract between a host and its plugins: descriptors, entry points, and the table of
// functions that the host offers.
//
// A plugin is a shared library with five exported entry points. It offers interfaces and depends
// on interfaces of other plugins; an interface is a record of plain function pointers in a fixed
// order, identified by a name and a version. No C++ object crosses the boundary.
//
// Holds for all records: strings are zero-terminated and owned by whoever filled the record;
// a plugin's own descriptors live as long as its library.
#pragma once

#include "Defines.h"

#include <cstddef>
#include <cstdint>

namespace vorn {

// Written major.minor. A wanted version is served by a version of the same major number whose
// minor number is not smaller.
struct Version {
    uint32_t major; // raised when something moved or went
    uint32_t minor; // raised when something was added
};

// Names an interface. Passed and returned by value.
struct InterfaceDesc {
    const char* name; // with its namespace, as in vorn::settings::ISettings
    Version version;  // wanted, or offered
};

// The framework version that these headers describe.
constexpr Version kFrameworkVersion = {0, 3};

// Whether a plugin lets the host replace its library while the program runs.
enum class PluginHotReload : uint32_t {
    eDisabled = 0, // never
    eEnabled = 1,  // while no client holds one of its tables
};

// What a plugin says of itself.
struct PluginImplDesc {
    const char* name;          // unique among the plugins of a host
    const char* description;   // one line for people
    const char* author;        // who made it
    PluginHotReload hotReload; // whether the host may replace the library while it runs
    const char* build;         // free text naming the build
};

// Filled by a plugin in vornOnPluginRegister; the record is the host's, what it points to is the
// plugin's.
struct PluginRegistryEntry {
    // One interface that the plugin offers.
    struct Interface {
        InterfaceDesc desc; // its name and version
        const void* ptr;    // the function table
        size_t size;        // of the table, in bytes
    };

    PluginImplDesc implDesc;     // what the plugin says of itself
    const Interface* interfaces; // what it offers
    size_t interfaceCount;       // of interfaces
};

struct Framework;

// The five entry points of a plugin. Any time: version and dependencies. Registration comes
// before start-up, start-up before any use of the interfaces, shut-down after the last use; a
// start-up may follow a shut-down. The host makes these calls while no other thread uses the
// plugin.
using OnPluginRegisterFn = void (*)(Framework* framework, PluginRegistryEntry* entry);
using GetFrameworkVersionFn = Version (*)();
using GetPluginDepsFn = void (*)(InterfaceDesc** deps, size_t* count);
using OnPluginStartupFn = void (*)();
using OnPluginShutdownFn = void (*)();

// The names that libraries export them under.
constexpr const char* kOnPluginRegisterFnName = "vornOnPluginRegister";
constexpr const char* kGetFrameworkVersionFnName = "vornGetFrameworkVersion";
constexpr const char* kGetPluginDepsFnName = "vornGetPluginDeps";
constexpr const char* kOnPluginStartupFnName = "vornOnPluginStartup";
constexpr const char* kOnPluginShutdownFnName = "vornOnPluginShutdown";

// Which libraries loadPluginsEx looks at. Null lists count as empty.
struct PluginLoadingDesc {
    const char* const* searchPaths;           // directories
    size_t searchPathCount;                   // of searchPaths
    bool searchRecursive;                     // also look into their subdirectories
    const char* const* loadedFileWildcards;   // file names to load; empty: lib*.plugin.so
    size_t loadedFileWildcardCount;           // of loadedFileWildcards
    const char* const* excludedFileWildcards; // file names to leave alone
    size_t excludedFileWildcardCount;         // of excludedFileWildcards
};

// A loaded or registered plugin as the host knows it. Lists and strings are the host's and stay
// valid until the plugin is unloaded.
struct PluginDesc {
    PluginImplDesc impl;               // what it says of itself
    const InterfaceDesc* interfaces;   // what it offers
    size_t interfaceCount;             // of interfaces
    const InterfaceDesc* dependencies; // what it needs before start-up
    size_t dependencyCount;            // of dependencies
    const char* libPath;               // file it was loaded from; null: registered by address
};

// A plugin that needs no file: the addresses of its entry points. All but getPluginDepsFn are
// required.
struct PluginRegistrationDesc {
    OnPluginRegisterFn onPluginRegisterFn;       // vornOnPluginRegister
    GetFrameworkVersionFn getFrameworkVersionFn; // vornGetFrameworkVersion
    GetPluginDepsFn getPluginDepsFn;             // vornGetPluginDeps; null: it needs nothing
    OnPluginStartupFn onPluginStartupFn;         // vornOnPluginStartup
    OnPluginShutdownFn onPluginShutdownFn;       // vornOnPluginShutdown
};

// The host's table. All slots may be called from any thread unless a slot says otherwise.
//
// The acquire family: finds an interface of the wanted name and version, starts the plugin that
// offers it (dependencies first) and notes the client as a user of it. pluginName chooses among
// several plugins and may be null. The result is a function table that stays valid until the
// plugin is unloaded. On failure the result is null; the plain forms log an error that says what
// was wanted and why it is not to be had, the try forms log nothing.
struct Framework {
    // Loads every library that the description matches, in the order of their file names, and
    // registers it. A library that is refused is logged and left out; the others are loaded.
    void (*loadPluginsEx)(const PluginLoadingDesc& desc);

    // Shuts every started plugin down, in the reverse order of start-up, and unloads all.
    // Never at the same time as any other call.
    void (*unloadAllPlugins)();

    // A table by interface, from any plugin or the named one.
    void* (*acquireInterfaceWithClient)(const char* clientName,
                                        InterfaceDesc desc,
                                        const char* pluginName);
    void* (*tryAcquireInterfaceWithClient)(const char* clientName,
                                           InterfaceDesc desc,
                                           const char* pluginName);

    // As above, from the plugin that also offers otherInterface, a table acquired before.
    void* (*acquireInterfaceFromInterfaceWithClient)(const char* clientName,
                                                     InterfaceDesc desc,
                                                     const void* otherInterface);
    void* (*tryAcquireInterfaceFromInterfaceWithClient)(const char* clientName,
                                                        InterfaceDesc desc,
                                                        const void* otherInterface);

    // As above, from the library at the given file path, which is loaded when it is not yet.
    void* (*acquireInterfaceFromLibraryWithClient)(const char* clientName,
                                                   InterfaceDesc desc,
                                                   const char* libraryPath);
    void* (*tryAcquireInterfaceFromLibraryWithClient)(const char* clientName,
                                                      InterfaceDesc desc,
                                                      const char* libraryPath);

    // How many interfaces of that name and a serving version exist.
    uint32_t (*getInterfacesCountEx)(InterfaceDesc desc);

    // Acquires up to count of them into interfaces, in the order of registration; places beyond
    // what exists are set to null.
    void (*acquireInterfacesWithClient)(const char* clientName,
                                        InterfaceDesc desc,
                                        void** interfaces,
                                        uint32_t count);

    // Ends one use of a table by that client. An unknown pair is ignored.
    void (*releaseInterfaceWithClient)(const char* clientName, void* interface);

    // The description of a plugin by name, or of the plugin that offers a table. An unknown name
    // or table yields a description whose fields are all null or zero.
    const PluginDesc& (*getPluginDesc)(const char* pluginName);
    const PluginDesc& (*getInterfacePluginDesc)(void* interface);

    // Fills plugins with the description of every plugin that offers the interface; the array
    // has room for getInterfacesCountEx entries.
    void (*getCompatiblePlugins)(InterfaceDesc desc, PluginDesc* plugins);

    // How many plugins are registered; getPlugins fills an array of that many entries.
    size_t (*getPluginCount)();
    void (*getPlugins)(PluginDesc* plugins);

    // Replaces every hot-reloadable plugin whose file has changed since it was loaded and that no
    // client holds. Never at the same time as any other call.
    void (*tryReloadPlugins)();

    // Registers a plugin by the addresses of its entry points, on behalf of the client; its name is
    // the one its descriptor carries. False, with an error logged, when the name is taken or the
    // plugin is refused.
    bool (*registerPlugin)(const char* clientName, const PluginRegistrationDesc& desc);

    // Shuts the plugin down when it is started and forgets it. False when it is unknown or
    // another plugin that is started depends on it.
    bool (*unregisterPlugin)(const char* pluginName);

    // The plugins built into the host, for a host that wants to register them by itself.
    const PluginRegistrationDesc& (*getBuiltinLoggingDesc)();
    const PluginRegistrationDesc& (*getBuiltinFileSystemDesc)();

    // Which plugin serves the interface when several offer it and the client names none.
    // A null clientName sets the default for every client.
    void (*setDefaultPluginEx)(const char* clientName, InterfaceDesc desc, const char* pluginName);

    // Where copies of hot-reloadable libraries are kept; the result is the host's own string.
    void (*setReloadableTempPath)(const char* path);
    const char* (*getReloadableTempPath)();

    // Free text naming the host's build.
    const char* (*getBuildInfo)();

    // The given table when it is a table of the wanted name whose version serves, else null.
    void* (*verifyInterfaceEx)(InterfaceDesc desc, void* interface);
};

static_assert(sizeof(Version) == 8 && sizeof(InterfaceDesc) == 16, "passed by value");
static_assert(sizeof(PluginImplDesc) == 40 && offsetof(PluginImplDesc, build) == 32, "layout");
static_assert(sizeof(PluginRegistryEntry) == 56 && sizeof(PluginRegistryEntry::Interface) == 32,
              "layout");
static_assert(sizeof(Framework) == 26 * sizeof(void (*)()), "26 slots");
static_assert(offsetof(Framework, acquireInterfaceWithClient) == 2 * sizeof(void (*)()), "slot 2");
static_assert(offsetof(Framework, verifyInterfaceEx) == 25 * sizeof(void (*)()), "slot 25");

} // namespace vorn

// Client globals of a plugin, one set per library, defined by VORN_PLUGIN_GLOBALS (PluginUtils.h).
// Hidden, so that a library never gets those of another one or of the application.
extern VORN_HIDDEN vorn::Framework* g_vornFramework; // set by registration; null before it
extern VORN_HIDDEN const char* g_vornClientName;     // the plugin's name, from load on
