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

// What both tables have in one piece: Get is what they read values of, Set what they write them to.
template <class Get, class Set>
struct Values {
    int64_t (*getAsInt64)(Get);
    void (*setInt64)(Set, int64_t);
    double (*getAsFloat64)(Get);
    void (*setFloat64)(Set, double);
    bool (*getAsBool)(Get);
    void (*setBool)(Set, bool);
    const char* (*createStringBufferFromItemValue)(Get);
    const char* (*getStringBuffer)(Get);
    void (*setString)(Set, const char*);
    bool (*isAccessibleAsArray)(Get);
    bool (*isAccessibleAsArrayOf)(ItemType, Get);
    size_t (*getArrayLength)(Get);
    ItemType (*getPreferredArrayType)(Get);
    int64_t (*getAsInt64At)(Get, size_t index);
    void (*setInt64At)(Set, size_t index, int64_t);
    void (*getAsInt64Array)(Get, int64_t*, size_t);
    void (*setInt64Array)(Set, const int64_t*, size_t);
    void (*getAsIntArray)(Get, int32_t*, size_t);
    void (*setIntArray)(Set, const int32_t*, size_t);
    double (*getAsFloat64At)(Get, size_t index);
    void (*setFloat64At)(Set, size_t index, double);
    void (*getAsFloat64Array)(Get, double*, size_t);
    void (*setFloat64Array)(Set, const double*, size_t);
    void (*getAsFloatArray)(Get, float*, size_t);
    void (*setFloatArray)(Set, const float*, size_t);
    bool (*getAsBoolAt)(Get, size_t index);
    void (*setBoolAt)(Set, size_t index, bool);
    void (*getAsBoolArray)(Get, bool*, size_t);
    void (*setBoolArray)(Set, const bool*, size_t);
    const char* (*createStringBufferFromItemValueAt)(Get, size_t index);
    const char* (*getStringBufferAt)(Get, size_t index);
    void (*setStringAt)(Set, size_t index, const char*);
    void (*getStringBufferArray)(Get, const char**, size_t);
    void (*setStringArray)(Set, const char* const*, size_t);
};

struct DictionaryItems {
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
};

struct IDictionary : DictionaryItems, Values<const Item*, Item*> {
    Slot getItemAt, getItemAtMutable, getItemArray;
    void (*update)(Item* dst, const char*, const Item* src, const char*, OnUpdate, void*);
    void (*destroyItem)(Item*);
    void (*destroyStringBuffer)(const char*);
};

struct SettingsTypes {
    ItemType (*getItemType)(const char* path);
    bool (*isAccessibleAs)(ItemType, const char* path);
    void (*setDictionary)(const char* path);
};

struct ISettings : SettingsTypes, Values<const char*, const char*> {
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
static_assert(sizeof(DictionaryItems) == 12 * sizeof(Slot) &&
              sizeof(SettingsTypes) == 3 * sizeof(Slot));
static_assert(sizeof(IDictionary) == 52 * sizeof(Slot) && sizeof(ISettings) == 53 * sizeof(Slot));

} // namespace foreign
