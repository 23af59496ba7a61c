// The settings table: typed reads and writes by path, arrays, change events, merges, subtrees and
// transactions over one tree of settings.
//
// Holds for all slots:
//
//  - A settings path is a zero-terminated string of names separated by "/", as in
//    /app/view/width. One leading "/" is dropped, so /a/b and a/b name the same node; the empty
//    path and "/" name the root. Nothing else is normalised.
//  - A null path is refused: the error "<slot function>: nullptr is not a valid path" is logged,
//    nothing changes, and the result is neutral (0, 0.0, false, null, ItemType::eCount). A missing
//    node or a value that does not convert gives the same neutral results.
//  - Values convert as the dictionary service converts them; strings are read unconverted.
//  - An array is a node whose children are named by their indices, "0" to "n-1". Indices and
//    lengths count elements, never bytes.
//  - Items belong to the dictionary service. Strings and arrays passed in are read during the call
//    only; pointers passed as userData are handed back and never looked at.
//  - Every change of the tree is told to its subscribers before the slot returns, on the calling
//    thread, with no lock held. Callbacks may call the table, with two exceptions: they must not
//    destroy or replace the node they are told about or a node around it, and while a subtree is
//    being told as destroyed they must not add or remove nodes in it.
//  - When memory is exhausted, the slots throw std::bad_alloc; those that make a subscription or a
//    transaction answer null when it is the record itself that finds none. The tree is then as it
//    was before the call, or as after it, without events; but nodes on the way to one that was to
//    be created may stay, as dictionaries, and with another dictionary service a value that
//    setDictionary was to replace may be gone.
//  - Slots may be called from start-up to shut-down of the plugin. Outside, they do nothing,
//    return neutral results and log one error.
//
// Thread tags:
//
//  - [reads]       any thread; as concurrent as the dictionary service allows.
//  - [writes]      any thread, as above; runs subscribers on the calling thread.
//                  With the dictionary plugin, reads and writes of any kind run beside each other,
//                  but nobody may use a node while it goes away: destroyItem, setDictionary over a
//                  value, initialisations, merges, arrays and values written over a dictionary.
//  - [subscribes]  never at the same time as another [subscribes] or a [writes] of another thread.
//  - [transacts]   never at the same time on one transaction; creating and destroying
//                  transactions never at the same time as each other.
#pragma once

#include "../Defines.h"
#include "../Framework.h"
#include "../dictionary/IDictionary.h"

namespace vorn::settings {

// What happened to a node.
enum class ChangeEventType : uint32_t {
    eChanged = 0,   // written, created or replaced; sent after the change
    eDestroyed = 1, // about to be removed; sent while the node still exists
};

// changedItem is the node the event is about. It may be null when a node that a merge created is
// gone by the time its event is sent.
using OnNodeChangeEventFn = void (*)(const dictionary::Item* changedItem,
                                     ChangeEventType eventType,
                                     void* userData);

// subtreeItem is the node at the subscribed path, an ancestor of changedItem.
using OnTreeChangeEventFn = void (*)(const dictionary::Item* subtreeItem,
                                     const dictionary::Item* changedItem,
                                     ChangeEventType eventType,
                                     void* userData);

struct SubscriptionId; // handle of a subscription, opaque
struct Transaction;    // handle of a transaction, opaque

// The table. What holds for all of its slots is said at the top of ISettings.h.
struct ISettings {
    // Name and version, for acquiring the table.
    static constexpr InterfaceDesc getInterfaceDesc() {
        return {"vorn::settings::ISettings", {0, 4}};
    }

    // -- types and scalars

    // The node's type; eCount when there is none. Logs nothing. [reads]
    dictionary::ItemType (*getItemType)(const char* path);

    // Whether the node can be read as itemType, with conversion. Logs nothing. [reads]
    bool (*isAccessibleAs)(dictionary::ItemType itemType, const char* path);

    // Makes the node a dictionary. An existing dictionary keeps its children and is reported as
    // changed; a value is reported as destroyed, replaced, and reported as changed. Missing nodes
    // on the way are created without an event. [writes]
    void (*setDictionary)(const char* path);

    // The value converted to the type of the slot. Missing or not convertible: a verbose message
    // and the neutral result. [reads]
    int64_t (*getAsInt64)(const char* path);
    // Stores the value, creating the node and missing nodes on the way, whatever the node held
    // before. One eChanged for the node on every call, also when the value stays the same.
    // [writes]
    void (*setInt64)(const char* path, int64_t value);
    // As getAsInt64 and setInt64.
    double (*getAsFloat64)(const char* path);
    void (*setFloat64)(const char* path, double value);
    bool (*getAsBool)(const char* path);
    void (*setBool)(const char* path, bool value);

    // A new string with the value in text form, the caller's until it is given to
    // destroyStringBuffer. Null, without a message, when there is no node. [reads]
    const char* (*createStringBufferFromItemValue)(const char* path);

    // The node's own string, not a copy. A node of another type: a verbose message and null. The
    // pointer is good until the node is written or destroyed. [reads]
    //
    //     const char* title = settings->getStringBuffer("/app/title");
    //     settings->setString("/app/title", "new");
    //     puts(title);                                   // wrong: title may be gone
    //
    //     const char* title = settings->createStringBufferFromItemValue("/app/title");
    //     settings->setString("/app/title", "new");
    //     puts(title);                                   // right: title is the caller's
    //     settings->destroyStringBuffer(title);
    const char* (*getStringBuffer)(const char* path);

    // As the other scalar writes; the text is copied, null is stored as the service stores it.
    // [writes]
    void (*setString)(const char* path, const char* value);

    // -- arrays and their elements

    // Whether the node is an array; whether every element is also accessible as itemType. [reads]
    bool (*isAccessibleAsArray)(const char* path);
    bool (*isAccessibleAsArrayOf)(dictionary::ItemType itemType, const char* path);

    // Number of elements; 0 when the node is missing or no array. Logs nothing. [reads]
    size_t (*getArrayLength)(const char* path);

    // The element type that fits all elements best, as the dictionary service sees it. [reads]
    dictionary::ItemType (*getPreferredArrayType)(const char* path);

    // -- elements by type
    //
    //  - get...At: one element, as the scalar reads. A missing array gives the neutral result
    //    without a message, a missing element with one. [reads]
    //  - set...At: exactly the scalar write of path/index. [writes]
    //  - get...Array: copies the elements into arrayOut, each into the place of its index; places
    //    without an element keep what they held. Missing node: a verbose message, nothing written.
    //    Too small: what fits is copied, one warning. An element of the wrong type: its neutral
    //    value and a verbose message. arrayBufferLength counts elements. [reads]
    //  - set...Array: replaces the node by an array of arrayLength elements, creating it when
    //    missing. eChanged for the array, then for each element in order. [writes]

    // Elements as 64-bit integers.
    int64_t (*getAsInt64At)(const char* path, size_t index);
    void (*setInt64At)(const char* path, size_t index, int64_t value);
    void (*getAsInt64Array)(const char* path, int64_t* arrayOut, size_t arrayBufferLength);
    void (*setInt64Array)(const char* path, const int64_t* array, size_t arrayLength);
    // Elements as 32-bit integers. Those beyond 32 bits are read as their low 32 bits.
    void (*getAsIntArray)(const char* path, int32_t* arrayOut, size_t arrayBufferLength);
    void (*setIntArray)(const char* path, const int32_t* array, size_t arrayLength);
    // Elements as 64-bit floats.
    double (*getAsFloat64At)(const char* path, size_t index);
    void (*setFloat64At)(const char* path, size_t index, double value);
    void (*getAsFloat64Array)(const char* path, double* arrayOut, size_t arrayBufferLength);
    void (*setFloat64Array)(const char* path, const double* array, size_t arrayLength);
    // Elements as 32-bit floats, rounded to single precision when read.
    void (*getAsFloatArray)(const char* path, float* arrayOut, size_t arrayBufferLength);
    void (*setFloatArray)(const char* path, const float* array, size_t arrayLength);
    // Elements as bools.
    bool (*getAsBoolAt)(const char* path, size_t index);
    void (*setBoolAt)(const char* path, size_t index, bool value);
    void (*getAsBoolArray)(const char* path, bool* arrayOut, size_t arrayBufferLength);
    void (*setBoolArray)(const char* path, const bool* array, size_t arrayLength);
    // As createStringBufferFromItemValue of path/index.
    const char* (*createStringBufferFromItemValueAt)(const char* path, size_t index);
    // The element's own string; see getStringBuffer for how long it is good.
    const char* (*getStringBufferAt)(const char* path, size_t index);
    // Exactly setString of path/index.
    void (*setStringAt)(const char* path, size_t index, const char* value);
    // Fills in the elements' own strings; an element of another type gives null.
    void (*getStringBufferArray)(const char* path, const char** arrayOut, size_t arrayBufferLength);
    // As the other whole-array writes; the texts are copied.
    void (*setStringArray)(const char* path, const char* const* array, size_t arrayLength);

    // -- transactions

    // A new transaction: a private tree that collects writes. Null when memory is exhausted.
    // The caller destroys it before shut-down. [transacts]
    Transaction* (*createTransaction)();

    // Drops the transaction with what was not committed. No event. Null is ignored. [transacts]
    void (*destroyTransaction)(Transaction* transaction);

    // Merges the private tree into the settings, overwriting; events as update sends them. The
    // transaction keeps its values, and a second commit applies them again. [transacts, writes]
    void (*commitTransaction)(Transaction* transaction);

    // Writes into the private tree; the settings and their subscribers see nothing. [transacts]
    void (*setInt64Async)(Transaction* transaction, const char* path, int64_t value);
    void (*setFloat64Async)(Transaction* transaction, const char* path, double value);
    void (*setBoolAsync)(Transaction* transaction, const char* path, bool value);
    void (*setStringAsync)(Transaction* transaction, const char* path, const char* value);

    // -- change events

    // Registers a callback for events of the node at path, which need not exist. The path must be
    // a full path, "/" and the names joined by "/", as in /app/view/width; it is matched byte for
    // byte. Subscribers of one path are called newest first. The handle is good until
    // unsubscribed or shut-down. Null, and nothing registered, for a null path (an error is
    // logged), a null callback, or when there is no memory for the record. [subscribes]
    SubscriptionId* (*subscribeToNodeChangeEvents)(const char* path,
                                                   OnNodeChangeEventFn onChangeEventFn,
                                                   void* userData);

    // The same for events of every node strictly below path, the nearest enclosing path first,
    // after the node subscribers. A subscription to the root is never called. [subscribes]
    SubscriptionId* (*subscribeToTreeChangeEvents)(const char* path,
                                                   OnTreeChangeEventFn onChangeEventFn,
                                                   void* userData);

    // Ends a subscription; it is not called again, not even by an event now being told on this
    // thread. Unknown handles and null are ignored. [subscribes]
    void (*unsubscribeToChangeEvents)(SubscriptionId* subscriptionId);

    // -- merges and subtrees

    // Merges what lies at srcDictionaryPath (null: all) below srcDictionary into path. The
    // callback is asked per item as the dictionary service asks; null accepts everything. When
    // the merge is complete, one eChanged per accepted node, in the order they were asked for.
    // [writes]
    void (*update)(const char* path,
                   const dictionary::Item* srcDictionary,
                   const char* srcDictionaryPath,
                   dictionary::OnUpdateItemFn onUpdateItemFn,
                   void* userData);

    // The live node at path, or null; it stays the store's, follows later writes, and is gone
    // when it is destroyed or replaced. Logs nothing for a missing node. [reads]
    const dictionary::Item* (*getSettingsDictionary)(const char* path);

    // A copy of the subtree at path as a new dictionary named "<full settings>", empty when there
    // is no node. The caller destroys it through the dictionary service. No event. [reads]
    dictionary::Item* (*createDictionaryFromSettings)(const char* path);

    // eDestroyed for the node and everything below it, each node before its children, while all
    // of them still exist; then they are removed. Of the root, the children are removed and the
    // root stays without an event. Subscriptions stay. A missing node is ignored. [writes]
    void (*destroyItem)(const char* path);

    // Takes back a string made by a createStringBuffer slot. Any other pointer is ignored.
    // Any thread, also after shut-down.
    void (*destroyStringBuffer)(const char* buffer);

    // Merges the dictionary into the root without events. Works once in the life of the library:
    // later calls log "<slot function>: already initialized". Null is ignored. [writes]
    void (*initializeFromDictionary)(const dictionary::Item* dictionary);

    // -- conveniences over the slots, compiled into the caller; 32-bit results saturate

    // The 64-bit slots for 32-bit values. What does not fit when read becomes the nearest value
    // that does.
    int32_t getAsInt(const char* path) const {
        return saturateToInt32(getAsInt64(path));
    }
    void setInt(const char* path, int32_t value) const {
        setInt64(path, value);
    }
    float getAsFloat(const char* path) const {
        return saturateToFloat(getAsFloat64(path));
    }
    void setFloat(const char* path, float value) const {
        setFloat64(path, static_cast<double>(value));
    }
    int32_t getAsIntAt(const char* path, size_t index) const {
        return saturateToInt32(getAsInt64At(path, index));
    }
    void setIntAt(const char* path, size_t index, int32_t value) const {
        setInt64At(path, index, value);
    }
    float getAsFloatAt(const char* path, size_t index) const {
        return saturateToFloat(getAsFloat64At(path, index));
    }
    void setFloatAt(const char* path, size_t index, float value) const {
        setFloat64At(path, index, static_cast<double>(value));
    }

    // Writes of defaults: done only where no node is. A null path is left to the slot to refuse.
    void setDefaultInt64(const char* path, int64_t value) const {
        if (_isDefaultWanted(path)) {
            setInt64(path, value);
        }
    }
    void setDefaultInt(const char* path, int32_t value) const {
        setDefaultInt64(path, value);
    }
    void setDefaultFloat64(const char* path, double value) const {
        if (_isDefaultWanted(path)) {
            setFloat64(path, value);
        }
    }
    void setDefaultFloat(const char* path, float value) const {
        setDefaultFloat64(path, static_cast<double>(value));
    }
    void setDefaultBool(const char* path, bool value) const {
        if (_isDefaultWanted(path)) {
            setBool(path, value);
        }
    }
    void setDefaultString(const char* path, const char* value) const {
        if (_isDefaultWanted(path)) {
            setString(path, value);
        }
    }
    void setDefaultInt64Array(const char* path, const int64_t* array, size_t arrayLength) const {
        if (_isDefaultWanted(path)) {
            setInt64Array(path, array, arrayLength);
        }
    }
    void setDefaultIntArray(const char* path, const int32_t* array, size_t arrayLength) const {
        if (_isDefaultWanted(path)) {
            setIntArray(path, array, arrayLength);
        }
    }
    void setDefaultFloat64Array(const char* path, const double* array, size_t arrayLength) const {
        if (_isDefaultWanted(path)) {
            setFloat64Array(path, array, arrayLength);
        }
    }
    void setDefaultFloatArray(const char* path, const float* array, size_t arrayLength) const {
        if (_isDefaultWanted(path)) {
            setFloatArray(path, array, arrayLength);
        }
    }
    void setDefaultBoolArray(const char* path, const bool* array, size_t arrayLength) const {
        if (_isDefaultWanted(path)) {
            setBoolArray(path, array, arrayLength);
        }
    }
    void
    setDefaultStringArray(const char* path, const char* const* array, size_t arrayLength) const {
        if (_isDefaultWanted(path)) {
            setStringArray(path, array, arrayLength);
        }
    }

    // Merges the dictionary into path, keeping every node that exists.
    void setDefaultsFromDictionary(const char* path, const dictionary::Item* dictionary) const {
        update(path, dictionary, nullptr, dictionary::kUpdateItemKeepOriginal, nullptr);
    }

private:
    // A null path is "wanted" so that the one write slot refuses and reports it.
    bool _isDefaultWanted(const char* path) const {
        return !path || getItemType(path) == dictionary::ItemType::eCount;
    }
};

static_assert(sizeof(ChangeEventType) == 4, "32-bit enum");
static_assert(sizeof(ISettings) == 53 * sizeof(void (*)()), "53 slots");
static_assert(sizeof(ISettings) == 424, "the size a host is told");
static_assert(offsetof(ISettings, setString) == 11 * sizeof(void (*)()), "slot 11");
static_assert(offsetof(ISettings, getAsInt64At) == 16 * sizeof(void (*)()), "slot 16");
static_assert(offsetof(ISettings, setStringArray) == 36 * sizeof(void (*)()), "slot 36");
static_assert(offsetof(ISettings, subscribeToNodeChangeEvents) == 44 * sizeof(void (*)()),
              "slot 44");
static_assert(offsetof(ISettings, initializeFromDictionary) == 52 * sizeof(void (*)()), "slot 52");

} // namespace vorn::settings
