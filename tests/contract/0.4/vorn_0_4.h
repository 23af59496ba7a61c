// The binary contract of settings 0.4, dictionary 0.4, framework 0.3, logging 0.3, profiler 0.1 and
// file system 0.1, in plain C: what programs that were built against it rely on. This file is
// never edited again; README.md says what to do instead.
//
// Every table is a list of slots, X(place, result, name, arguments), from which its record is made.
// clang-format off
#pragma once

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

// ---- enumerations, 32 bits each

typedef uint32_t V04ItemType;
enum {
    kV04Bool = 0, kV04Int = 1, kV04Float = 2, kV04String = 3, kV04Dictionary = 4, kV04Count = 5
};
typedef uint32_t V04UpdateAction;
enum { kV04Overwrite = 0, kV04Keep = 1 };
typedef uint32_t V04ChangeEventType;
enum { kV04Changed = 0, kV04Destroyed = 1 };
typedef uint32_t V04PluginHotReload;
enum { kV04Disabled = 0, kV04Enabled = 1 };
typedef uint32_t V04LogSettingBehavior;
enum { kV04Inherit = 0, kV04Override = 1 };
typedef uint32_t V04FileItemType;
typedef uint32_t V04WalkAction;

// ---- handles

typedef struct V04Item V04Item;
typedef struct V04SubscriptionId V04SubscriptionId;
typedef struct V04Transaction V04Transaction;

// ---- records, as X(offset, type, name)

#define V04_MEMBER(offset, type, name) type name;
#define V04_MEMBER_PIN(offset, type, name) \
    static_assert(offsetof(V04_PINNED, name) == (offset), "moved");

typedef struct V04Version { uint32_t major, minor; } V04Version;
typedef struct V04InterfaceDesc { const char* name; V04Version version; } V04InterfaceDesc;
static_assert(sizeof(V04Version) == 8 && sizeof(V04InterfaceDesc) == 16, "grown");

#define V04_PLUGIN_IMPL_DESC(X) \
    X(0, const char*, name) \
    X(8, const char*, description) \
    X(16, const char*, author) \
    X(24, V04PluginHotReload, hotReload) \
    X(32, const char*, build)
typedef struct V04PluginImplDesc { V04_PLUGIN_IMPL_DESC(V04_MEMBER) } V04PluginImplDesc;

#define V04_INTERFACE(X) \
    X(0, V04InterfaceDesc, desc) \
    X(16, const void*, ptr) \
    X(24, size_t, size)
typedef struct V04Interface { V04_INTERFACE(V04_MEMBER) } V04Interface;

#define V04_PLUGIN_REGISTRY_ENTRY(X) \
    X(0, V04PluginImplDesc, implDesc) \
    X(40, const V04Interface*, interfaces) \
    X(48, size_t, interfaceCount)
typedef struct V04PluginRegistryEntry {
    V04_PLUGIN_REGISTRY_ENTRY(V04_MEMBER)
} V04PluginRegistryEntry;

#define V04_PLUGIN_LOADING_DESC(X) \
    X(0, const char* const*, searchPaths) \
    X(8, size_t, searchPathCount) \
    X(16, bool, searchRecursive) \
    X(24, const char* const*, loadedFileWildcards) \
    X(32, size_t, loadedFileWildcardCount) \
    X(40, const char* const*, excludedFileWildcards) \
    X(48, size_t, excludedFileWildcardCount)
typedef struct V04PluginLoadingDesc { V04_PLUGIN_LOADING_DESC(V04_MEMBER) } V04PluginLoadingDesc;

#define V04_PLUGIN_DESC(X) \
    X(0, V04PluginImplDesc, impl) \
    X(40, const V04InterfaceDesc*, interfaces) \
    X(48, size_t, interfaceCount) \
    X(56, const V04InterfaceDesc*, dependencies) \
    X(64, size_t, dependencyCount) \
    X(72, const char*, libPath)
typedef struct V04PluginDesc { V04_PLUGIN_DESC(V04_MEMBER) } V04PluginDesc;

struct V04Framework;
typedef void (*V04OnPluginRegisterFn)(struct V04Framework*, V04PluginRegistryEntry*);
typedef V04Version (*V04GetFrameworkVersionFn)(void);
typedef void (*V04GetPluginDepsFn)(V04InterfaceDesc**, size_t*);
typedef void (*V04OnPluginStartupFn)(void);
typedef void (*V04OnPluginShutdownFn)(void);

#define V04_PLUGIN_REGISTRATION_DESC(X) \
    X(0, V04OnPluginRegisterFn, onPluginRegisterFn) \
    X(8, V04GetFrameworkVersionFn, getFrameworkVersionFn) \
    X(16, V04GetPluginDepsFn, getPluginDepsFn) \
    X(24, V04OnPluginStartupFn, onPluginStartupFn) \
    X(32, V04OnPluginShutdownFn, onPluginShutdownFn)
typedef struct V04PluginRegistrationDesc {
    V04_PLUGIN_REGISTRATION_DESC(V04_MEMBER)
} V04PluginRegistrationDesc;

typedef void (*V04SetLogLevelFn)(int32_t level);
typedef struct V04Logger {
    void (*handleMessage)(struct V04Logger*, const char*, int32_t, const char*, int, const char*);
} V04Logger;
typedef struct V04StandardLogger {
    V04Logger logger;
    void (*setLevelThreshold)(struct V04StandardLogger*, int32_t);
    int32_t (*getLevelThreshold)(const struct V04StandardLogger*);
    void (*setFileNameIncluded)(struct V04StandardLogger*, bool);
    void (*setFileDescriptor)(struct V04StandardLogger*, int);
} V04StandardLogger;

#define V04_ITEM_INFO(X) \
    X(0, V04FileItemType, type) \
    X(4, bool, isLink) \
    X(8, uint64_t, fileId) \
    X(16, uint64_t, size) \
    X(24, int64_t, modifiedTime)
typedef struct V04ItemInfo { V04_ITEM_INFO(V04_MEMBER) } V04ItemInfo;

// ---- callbacks

typedef V04UpdateAction (*V04OnUpdateItemFn)(const V04Item* dst, V04ItemType dstType,
                                             const V04Item* src, V04ItemType srcType, void*);
typedef void (*V04OnNodeChangeEventFn)(const V04Item* changed, V04ChangeEventType, void*);
typedef void (*V04OnTreeChangeEventFn)(const V04Item* subtree, const V04Item* changed,
                                       V04ChangeEventType, void*);
typedef V04WalkAction (*V04OnDirectoryItemFn)(const char* path, const V04ItemInfo*, void*);

// ---- tables

#define V04_SLOT(place, result, name, arguments) result(*name) arguments;

#define V04_FRAMEWORK_SLOTS(X) \
    X(0, void, loadPluginsEx, (const V04PluginLoadingDesc*)) \
    X(1, void, unloadAllPlugins, (void)) \
    X(2, void*, acquireInterfaceWithClient, (const char*, V04InterfaceDesc, const char*)) \
    X(3, void*, tryAcquireInterfaceWithClient, (const char*, V04InterfaceDesc, const char*)) \
    X(4, void*, acquireInterfaceFromInterfaceWithClient, (const char*, V04InterfaceDesc, \
       const void*)) \
    X(5, void*, tryAcquireInterfaceFromInterfaceWithClient, (const char*, V04InterfaceDesc, \
       const void*)) \
    X(6, void*, acquireInterfaceFromLibraryWithClient, (const char*, V04InterfaceDesc, \
       const char*)) \
    X(7, void*, tryAcquireInterfaceFromLibraryWithClient, (const char*, V04InterfaceDesc, \
       const char*)) \
    X(8, uint32_t, getInterfacesCountEx, (V04InterfaceDesc)) \
    X(9, void, acquireInterfacesWithClient, (const char*, V04InterfaceDesc, void**, uint32_t)) \
    X(10, void, releaseInterfaceWithClient, (const char*, void*)) \
    X(11, const V04PluginDesc*, getPluginDesc, (const char*)) \
    X(12, const V04PluginDesc*, getInterfacePluginDesc, (void*)) \
    X(13, void, getCompatiblePlugins, (V04InterfaceDesc, V04PluginDesc*)) \
    X(14, size_t, getPluginCount, (void)) \
    X(15, void, getPlugins, (V04PluginDesc*)) \
    X(16, void, tryReloadPlugins, (void)) \
    X(17, bool, registerPlugin, (const char*, const V04PluginRegistrationDesc*)) \
    X(18, bool, unregisterPlugin, (const char*)) \
    X(19, const V04PluginRegistrationDesc*, getBuiltinLoggingDesc, (void)) \
    X(20, const V04PluginRegistrationDesc*, getBuiltinFileSystemDesc, (void)) \
    X(21, void, setDefaultPluginEx, (const char*, V04InterfaceDesc, const char*)) \
    X(22, void, setReloadableTempPath, (const char*)) \
    X(23, const char*, getReloadableTempPath, (void)) \
    X(24, const char*, getBuildInfo, (void)) \
    X(25, void*, verifyInterfaceEx, (V04InterfaceDesc, void*))
typedef struct V04Framework { V04_FRAMEWORK_SLOTS(V04_SLOT) } V04Framework;
static_assert(sizeof(V04Framework) == 208, "26 slots");

#define V04_LOGGING_SLOTS(X) \
    X(0, void, log, (const char*, int32_t, const char*, int, const char*, ...)) \
    X(1, void, setLevelThreshold, (int32_t)) \
    X(2, int32_t, getLevelThreshold, (void)) \
    X(3, void, setLogEnabled, (bool)) \
    X(4, bool, isLogEnabled, (void)) \
    X(5, void, setLevelThresholdForSource, (const char*, V04LogSettingBehavior, int32_t)) \
    X(6, void, setLogEnabledForSource, (const char*, V04LogSettingBehavior, bool)) \
    X(7, void, reset, (void)) \
    X(8, void, addLogger, (V04Logger*)) \
    X(9, void, removeLogger, (V04Logger*)) \
    X(10, V04StandardLogger*, getDefaultLogger, (void)) \
    X(11, V04StandardLogger*, createStandardLogger, (void)) \
    X(12, void, destroyStandardLogger, (V04StandardLogger*)) \
    X(13, void, registerSource, (const char*, V04SetLogLevelFn)) \
    X(14, void, unregisterSource, (const char*))
typedef struct V04Logging { V04_LOGGING_SLOTS(V04_SLOT) } V04Logging;
static_assert(sizeof(V04Logging) == 120, "15 slots");

#define V04_PROFILER_SLOTS(X) \
    X(0, void, startup, (void)) \
    X(1, void, shutdown, (void)) \
    X(2, uint64_t, setCaptureMask, (uint64_t)) \
    X(3, void, begin, (uint64_t, const char*)) \
    X(4, void, end, (uint64_t)) \
    X(5, void, frame, (uint64_t, const char*)) \
    X(6, void, valueFloat, (uint64_t, float, const char*)) \
    X(7, void, valueInt, (uint64_t, int32_t, const char*)) \
    X(8, void, valueUInt, (uint64_t, uint32_t, const char*))
typedef struct V04Profiler { V04_PROFILER_SLOTS(V04_SLOT) } V04Profiler;
static_assert(sizeof(V04Profiler) == 72, "9 slots");

#define V04_FILE_SYSTEM_SLOTS(X) \
    X(0, bool, exists, (const char*)) \
    X(1, bool, isDirectory, (const char*)) \
    X(2, bool, getItemInfo, (const char*, V04ItemInfo*)) \
    X(3, size_t, getCanonicalPath, (const char*, char*, size_t)) \
    X(4, const char*, getExecutableDirectoryPath, (void)) \
    X(5, bool, forEachDirectoryItem, (const char*, V04OnDirectoryItemFn, void*)) \
    X(6, bool, makeDirectories, (const char*)) \
    X(7, bool, copyFile, (const char*, const char*)) \
    X(8, bool, removeFile, (const char*))
typedef struct V04FileSystem { V04_FILE_SYSTEM_SLOTS(V04_SLOT) } V04FileSystem;
static_assert(sizeof(V04FileSystem) == 72, "9 slots");

#define V04_DICTIONARY_SLOTS(X) \
    X(0, const V04Item*, getItem, (const V04Item*, const char*)) \
    X(1, V04Item*, getItemMutable, (V04Item*, const char*)) \
    X(2, size_t, getItemChildCount, (const V04Item*)) \
    X(3, const V04Item*, getItemChildByIndex, (const V04Item*, size_t)) \
    X(4, V04Item*, getItemChildByIndexMutable, (V04Item*, size_t)) \
    X(5, const V04Item*, getItemParent, (const V04Item*)) \
    X(6, V04Item*, getItemParentMutable, (V04Item*)) \
    X(7, V04ItemType, getItemType, (const V04Item*)) \
    X(8, const char*, createStringBufferFromItemName, (const V04Item*)) \
    X(9, const char*, getItemName, (const V04Item*)) \
    X(10, V04Item*, createItem, (V04Item*, const char*, V04ItemType)) \
    X(11, bool, isAccessibleAs, (V04ItemType, const V04Item*)) \
    X(12, int64_t, getAsInt64, (const V04Item*)) \
    X(13, void, setInt64, (V04Item*, int64_t)) \
    X(14, double, getAsFloat64, (const V04Item*)) \
    X(15, void, setFloat64, (V04Item*, double)) \
    X(16, bool, getAsBool, (const V04Item*)) \
    X(17, void, setBool, (V04Item*, bool)) \
    X(18, const char*, createStringBufferFromItemValue, (const V04Item*)) \
    X(19, const char*, getStringBuffer, (const V04Item*)) \
    X(20, void, setString, (V04Item*, const char*)) \
    X(21, bool, isAccessibleAsArray, (const V04Item*)) \
    X(22, bool, isAccessibleAsArrayOf, (V04ItemType, const V04Item*)) \
    X(23, size_t, getArrayLength, (const V04Item*)) \
    X(24, V04ItemType, getPreferredArrayType, (const V04Item*)) \
    X(25, int64_t, getAsInt64At, (const V04Item*, size_t)) \
    X(26, void, setInt64At, (V04Item*, size_t, int64_t)) \
    X(27, void, getAsInt64Array, (const V04Item*, int64_t*, size_t)) \
    X(28, void, setInt64Array, (V04Item*, const int64_t*, size_t)) \
    X(29, void, getAsIntArray, (const V04Item*, int32_t*, size_t)) \
    X(30, void, setIntArray, (V04Item*, const int32_t*, size_t)) \
    X(31, double, getAsFloat64At, (const V04Item*, size_t)) \
    X(32, void, setFloat64At, (V04Item*, size_t, double)) \
    X(33, void, getAsFloat64Array, (const V04Item*, double*, size_t)) \
    X(34, void, setFloat64Array, (V04Item*, const double*, size_t)) \
    X(35, void, getAsFloatArray, (const V04Item*, float*, size_t)) \
    X(36, void, setFloatArray, (V04Item*, const float*, size_t)) \
    X(37, bool, getAsBoolAt, (const V04Item*, size_t)) \
    X(38, void, setBoolAt, (V04Item*, size_t, bool)) \
    X(39, void, getAsBoolArray, (const V04Item*, bool*, size_t)) \
    X(40, void, setBoolArray, (V04Item*, const bool*, size_t)) \
    X(41, const char*, createStringBufferFromItemValueAt, (const V04Item*, size_t)) \
    X(42, const char*, getStringBufferAt, (const V04Item*, size_t)) \
    X(43, void, setStringAt, (V04Item*, size_t, const char*)) \
    X(44, void, getStringBufferArray, (const V04Item*, const char**, size_t)) \
    X(45, void, setStringArray, (V04Item*, const char* const*, size_t)) \
    X(46, const V04Item*, getItemAt, (const V04Item*, size_t)) \
    X(47, V04Item*, getItemAtMutable, (V04Item*, size_t)) \
    X(48, void, getItemArray, (const V04Item*, const V04Item**, size_t)) \
    X(49, void, update, (V04Item*, const char*, const V04Item*, const char*, \
       V04OnUpdateItemFn, void*)) \
    X(50, void, destroyItem, (V04Item*)) \
    X(51, void, destroyStringBuffer, (const char*))
typedef struct V04IDictionary { V04_DICTIONARY_SLOTS(V04_SLOT) } V04IDictionary;
static_assert(sizeof(V04IDictionary) == 416, "52 slots");

#define V04_SETTINGS_SLOTS(X) \
    X(0, V04ItemType, getItemType, (const char*)) \
    X(1, bool, isAccessibleAs, (V04ItemType, const char*)) \
    X(2, void, setDictionary, (const char*)) \
    X(3, int64_t, getAsInt64, (const char*)) \
    X(4, void, setInt64, (const char*, int64_t)) \
    X(5, double, getAsFloat64, (const char*)) \
    X(6, void, setFloat64, (const char*, double)) \
    X(7, bool, getAsBool, (const char*)) \
    X(8, void, setBool, (const char*, bool)) \
    X(9, const char*, createStringBufferFromItemValue, (const char*)) \
    X(10, const char*, getStringBuffer, (const char*)) \
    X(11, void, setString, (const char*, const char*)) \
    X(12, bool, isAccessibleAsArray, (const char*)) \
    X(13, bool, isAccessibleAsArrayOf, (V04ItemType, const char*)) \
    X(14, size_t, getArrayLength, (const char*)) \
    X(15, V04ItemType, getPreferredArrayType, (const char*)) \
    X(16, int64_t, getAsInt64At, (const char*, size_t)) \
    X(17, void, setInt64At, (const char*, size_t, int64_t)) \
    X(18, void, getAsInt64Array, (const char*, int64_t*, size_t)) \
    X(19, void, setInt64Array, (const char*, const int64_t*, size_t)) \
    X(20, void, getAsIntArray, (const char*, int32_t*, size_t)) \
    X(21, void, setIntArray, (const char*, const int32_t*, size_t)) \
    X(22, double, getAsFloat64At, (const char*, size_t)) \
    X(23, void, setFloat64At, (const char*, size_t, double)) \
    X(24, void, getAsFloat64Array, (const char*, double*, size_t)) \
    X(25, void, setFloat64Array, (const char*, const double*, size_t)) \
    X(26, void, getAsFloatArray, (const char*, float*, size_t)) \
    X(27, void, setFloatArray, (const char*, const float*, size_t)) \
    X(28, bool, getAsBoolAt, (const char*, size_t)) \
    X(29, void, setBoolAt, (const char*, size_t, bool)) \
    X(30, void, getAsBoolArray, (const char*, bool*, size_t)) \
    X(31, void, setBoolArray, (const char*, const bool*, size_t)) \
    X(32, const char*, createStringBufferFromItemValueAt, (const char*, size_t)) \
    X(33, const char*, getStringBufferAt, (const char*, size_t)) \
    X(34, void, setStringAt, (const char*, size_t, const char*)) \
    X(35, void, getStringBufferArray, (const char*, const char**, size_t)) \
    X(36, void, setStringArray, (const char*, const char* const*, size_t)) \
    X(37, V04Transaction*, createTransaction, (void)) \
    X(38, void, destroyTransaction, (V04Transaction*)) \
    X(39, void, commitTransaction, (V04Transaction*)) \
    X(40, void, setInt64Async, (V04Transaction*, const char*, int64_t)) \
    X(41, void, setFloat64Async, (V04Transaction*, const char*, double)) \
    X(42, void, setBoolAsync, (V04Transaction*, const char*, bool)) \
    X(43, void, setStringAsync, (V04Transaction*, const char*, const char*)) \
    X(44, V04SubscriptionId*, subscribeToNodeChangeEvents, (const char*, \
       V04OnNodeChangeEventFn, void*)) \
    X(45, V04SubscriptionId*, subscribeToTreeChangeEvents, (const char*, \
       V04OnTreeChangeEventFn, void*)) \
    X(46, void, unsubscribeToChangeEvents, (V04SubscriptionId*)) \
    X(47, void, update, (const char*, const V04Item*, const char*, V04OnUpdateItemFn, void*)) \
    X(48, const V04Item*, getSettingsDictionary, (const char*)) \
    X(49, V04Item*, createDictionaryFromSettings, (const char*)) \
    X(50, void, destroyItem, (const char*)) \
    X(51, void, destroyStringBuffer, (const char*)) \
    X(52, void, initializeFromDictionary, (const V04Item*))
typedef struct V04ISettings { V04_SETTINGS_SLOTS(V04_SLOT) } V04ISettings;
static_assert(sizeof(V04ISettings) == 424, "53 slots");

// ---- places

#define V04_SLOT_PIN(place, result, name, arguments) \
    static_assert(offsetof(V04_PINNED, name) == 8 * (place), "moved");
#define V04_PINNED V04PluginImplDesc
V04_PLUGIN_IMPL_DESC(V04_MEMBER_PIN)
static_assert(sizeof(V04_PINNED) == 40, "grown");
#undef V04_PINNED
#define V04_PINNED V04Interface
V04_INTERFACE(V04_MEMBER_PIN)
static_assert(sizeof(V04_PINNED) == 32, "grown");
#undef V04_PINNED
#define V04_PINNED V04PluginRegistryEntry
V04_PLUGIN_REGISTRY_ENTRY(V04_MEMBER_PIN)
static_assert(sizeof(V04_PINNED) == 56, "grown");
#undef V04_PINNED
#define V04_PINNED V04PluginLoadingDesc
V04_PLUGIN_LOADING_DESC(V04_MEMBER_PIN)
static_assert(sizeof(V04_PINNED) == 56, "grown");
#undef V04_PINNED
#define V04_PINNED V04PluginDesc
V04_PLUGIN_DESC(V04_MEMBER_PIN)
static_assert(sizeof(V04_PINNED) == 80, "grown");
#undef V04_PINNED
#define V04_PINNED V04PluginRegistrationDesc
V04_PLUGIN_REGISTRATION_DESC(V04_MEMBER_PIN)
static_assert(sizeof(V04_PINNED) == 40, "grown");
#undef V04_PINNED
#define V04_PINNED V04ItemInfo
V04_ITEM_INFO(V04_MEMBER_PIN)
static_assert(sizeof(V04_PINNED) == 32, "grown");
#undef V04_PINNED
#define V04_PINNED V04Framework
V04_FRAMEWORK_SLOTS(V04_SLOT_PIN)
#undef V04_PINNED
#define V04_PINNED V04Logging
V04_LOGGING_SLOTS(V04_SLOT_PIN)
#undef V04_PINNED
#define V04_PINNED V04Profiler
V04_PROFILER_SLOTS(V04_SLOT_PIN)
#undef V04_PINNED
#define V04_PINNED V04FileSystem
V04_FILE_SYSTEM_SLOTS(V04_SLOT_PIN)
#undef V04_PINNED
#define V04_PINNED V04IDictionary
V04_DICTIONARY_SLOTS(V04_SLOT_PIN)
#undef V04_PINNED
#define V04_PINNED V04ISettings
V04_SETTINGS_SLOTS(V04_SLOT_PIN)
#undef V04_PINNED
