// The records of the plugin boundary as a host built elsewhere declares them: written from the
// published tables, slot by slot, without the project's own headers.
#pragma once

#include <cstddef>
#include <cstdint>

namespace foreign {

using Slot = void (*)(); // not called here, or never to be called by the store

struct Item;
struct SubscriptionId;
struct Transaction;

enum ItemType : uint32_t { eBool, eInt, eFloat, eString, eDictionary, eCount };
enum UpdateAction : uint32_t { eOverwrite, eKeep };
enum ChangeEvent : uint32_t { eChanged, eDestroyed };

using OnUpdate = UpdateAction (*)(const Item* dst, ItemType, const Item* src, ItemType, void*);
using OnNodeChange = void (*)(const Item* changed, ChangeEvent, void*);
using OnTreeChange = void (*)(const Item* subtree, const Item* changed, ChangeEvent, void*);
using SetLogLevel = void (*)(int32_t level);

struct Version {
    uint32_t major, minor;
};

struct InterfaceDesc {
    const char* name;
    Version version;
};

struct RegistryEntry {
    struct Interface {
        InterfaceDesc desc;
        const void* ptr;
        size_t size;
    };
    const char *name, *description, *author;
    uint32_t hotReload;
    const char* build;
    const Interface* interfaces;
    size_t interfaceCount;
};

using Acquire = void* (*)(const char* client, InterfaceDesc desc, const char* plugin);

struct Framework {
    Slot slots0to1[2];
    Acquire acquireInterfaceWithClient, tryAcquireInterfaceWithClient;
    Slot slots4to25[22];
};

struct Logging {
    void (*log)(const char* source, int32_t level, const char* file, int line, const char*, ...);
    Slot slots1to12[12];
    void (*registerSource)(const char* source, SetLogLevel callback);
    void (*unregisterSource)(const char* source);
};

struct IDictionary {
    const Item* (*getItem)(const Item* base, const char* path);
    Item* (*getItemMutable)(Item* base, const char* path);
    size_t (*getItemChildCount)(const Item*);
    const Item* (*getItemChildByIndex)(const Item*, size_t index);
    Slot getItemChildByIndexMutable;
    const Item* (*getItemParent)(const Item*);
    Slot getItemParentMutable;
    ItemType (*getItemType)(const Item*);
    Slot createStringBufferFromItemName;
    const char* (*getItemName)(const Item*);
    Item* (*createItem)(Item* parent, const char* path, ItemType);
    bool (*isAccessibleAs)(ItemType, const Item*);
    int64_t (*getAsInt64)(const Item*);
    void (*setInt64)(Item*, int64_t);
    double (*getAsFloat64)(const Item*);
    void (*setFloat64)(Item*, double);
    bool (*getAsBool)(const Item*);
    void (*setBool)(Item*, bool);
    const char* (*createStringBufferFromItemValue)(const Item*);
    const char* (*getStringBuffer)(const Item*);
    void (*setString)(Item*, const char*);
    Slot isAccessibleAsArray, isAccessibleAsArrayOf, getArrayLength;
    ItemType (*getPreferredArrayType)(const Item*);
    Slot getAsInt64At, setInt64At, getAsInt64Array;
    void (*setInt64Array)(Item*, const int64_t*, size_t);
    Slot getAsIntArray;
    void (*setIntArray)(Item*, const int32_t*, size_t);
    Slot getAsFloat64At, setFloat64At, getAsFloat64Array;
    void (*setFloat64Array)(Item*, const double*, size_t);
    Slot getAsFloatArray;
    void (*setFloatArray)(Item*, const float*, size_t);
    Slot getAsBoolAt, setBoolAt, getAsBoolArray;
    void (*setBoolArray)(Item*, const bool*, size_t);
    Slot createStringBufferFromItemValueAt, getStringBufferAt, setStringAt, getStringBufferArray;
    void (*setStringArray)(Item*, const char* const*, size_t);
    Slot getItemAt, getItemAtMutable, getItemArray;
    void (*update)(Item* dst, const char*, const Item* src, const char*, OnUpdate, void*);
    void (*destroyItem)(Item*);
    void (*destroyStringBuffer)(const char*);
};

struct ISettings {
    ItemType (*getItemType)(const char* path);
    bool (*isAccessibleAs)(ItemType, const char* path);
    void (*setDictionary)(const char* path);
    int64_t (*getAsInt64)(const char* path);
    void (*setInt64)(const char* path, int64_t);
    double (*getAsFloat64)(const char* path);
    void (*setFloat64)(const char* path, double);
    bool (*getAsBool)(const char* path);
    void (*setBool)(const char* path, bool);
    const char* (*createStringBufferFromItemValue)(const char* path);
    const char* (*getStringBuffer)(const char* path);
    void (*setString)(const char* path, const char*);
    bool (*isAccessibleAsArray)(const char* path);
    bool (*isAccessibleAsArrayOf)(ItemType, const char* path);
    size_t (*getArrayLength)(const char* path);
    ItemType (*getPreferredArrayType)(const char* path);
    int64_t (*getAsInt64At)(const char* path, size_t index);
    void (*setInt64At)(const char* path, size_t index, int64_t);
    void (*getAsInt64Array)(const char* path, int64_t*, size_t);
    void (*setInt64Array)(const char* path, const int64_t*, size_t);
    void (*getAsIntArray)(const char* path, int32_t*, size_t);
    void (*setIntArray)(const char* path, const int32_t*, size_t);
    double (*getAsFloat64At)(const char* path, size_t index);
    void (*setFloat64At)(const char* path, size_t index, double);
    void (*getAsFloat64Array)(const char* path, double*, size_t);
    void (*setFloat64Array)(const char* path, const double*, size_t);
    void (*getAsFloatArray)(const char* path, float*, size_t);
    void (*setFloatArray)(const char* path, const float*, size_t);
    bool (*getAsBoolAt)(const char* path, size_t index);
    void (*setBoolAt)(const char* path, size_t index, bool);
    void (*getAsBoolArray)(const char* path, bool*, size_t);
    void (*setBoolArray)(const char* path, const bool*, size_t);
    const char* (*createStringBufferFromItemValueAt)(const char* path, size_t index);
    const char* (*getStringBufferAt)(const char* path, size_t index);
    void (*setStringAt)(const char* path, size_t index, const char*);
    void (*getStringBufferArray)(const char* path, const char**, size_t);
    void (*setStringArray)(const char* path, const char* const*, size_t);
    Transaction* (*createTransaction)();
    void (*destroyTransaction)(Transaction*);
    void (*commitTransaction)(Transaction*);
    void (*setInt64Async)(Transaction*, const char* path, int64_t);
    void (*setFloat64Async)(Transaction*, const char* path, double);
    void (*setBoolAsync)(Transaction*, const char* path, bool);
    void (*setStringAsync)(Transaction*, const char* path, const char*);
    SubscriptionId* (*subscribeToNodeChangeEvents)(const char* path, OnNodeChange, void*);
    SubscriptionId* (*subscribeToTreeChangeEvents)(const char* path, OnTreeChange, void*);
    void (*unsubscribeToChangeEvents)(SubscriptionId*);
    void (*update)(const char* path, const Item* src, const char* srcPath, OnUpdate, void*);
    const Item* (*getSettingsDictionary)(const char* path);
    Item* (*createDictionaryFromSettings)(const char* path);
    void (*destroyItem)(const char* path);
    void (*destroyStringBuffer)(const char*);
    void (*initializeFromDictionary)(const Item*);
};

static_assert(sizeof(Framework) == 26 * sizeof(Slot) && sizeof(Logging) == 15 * sizeof(Slot));
static_assert(sizeof(IDictionary) == 52 * sizeof(Slot) && sizeof(ISettings) == 53 * sizeof(Slot));
static_assert(offsetof(IDictionary, getPreferredArrayType) == 24 * sizeof(Slot));
static_assert(offsetof(IDictionary, setStringArray) == 45 * sizeof(Slot));

} // namespace foreign
