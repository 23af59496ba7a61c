// The contract of the dictionary service: a table of functions over trees of items.
//
// An item is a value (bool, 64-bit integer, 64-bit float, string) or a dictionary, whose children
// are named items kept in the order of their creation. Items belong to the service, which creates
// and destroys them; a handle stays valid, and keeps its name, until the item is destroyed, however
// often its value is overwritten. Its place among its siblings stays too, except that the elements
// of an array written whole come to lie in the order of their indices.
//
// Holds for all slots:
//
//  - A path is a zero-terminated string of names separated by "/", relative to the item it is
//    given with. The empty path and a null path stand for that item itself. A name is never
//    empty, so a path with an empty component names nothing.
//  - A null item is allowed everywhere: queries answer null, ItemType::eCount, false or 0, and
//    operations that would change it do nothing.
//  - An array is a dictionary whose children are named "0", "1", ... n-1. Indices and lengths
//    count elements.
//  - Strings passed in are copied. Strings handed out by getStringBuffer and getItemName are the
//    item's own: the value until the item is written or destroyed, the name until it is destroyed.
//  - When memory is exhausted, createItem and the slots that make a string answer null; all others
//    throw std::bad_alloc and leave the trees as they were.
//  - Nothing is logged.
//
// Threads:
//
//  - [reads]     any thread, also beside [writes] and [creates] on the same tree; never waits.
//  - [writes]    any thread, beside everything but [removes] of the same item.
//  - [creates]   any thread, beside everything but [removes] of the parent.
//  - [removes]   any thread, once the caller knows that nobody uses what goes away; a lookup of its
//                path that is under way is a use. Whatever makes a dictionary a value or a shorter
//                array removes its children: setters, createItem with another type, update.
//
// A value is read and written whole: a type and the value of one write, never of two. What changes
// many items, a whole array or a merge, is seen item by item. Merges, whole-array writes, creations
// and removals wait for each other for a step at a time; no lock is held while a callback runs.
#pragma once

#include "../Defines.h"
#include "../Framework.h"

namespace vorn::dictionary {

struct Item; // handle of an item, opaque

// What an item holds.
enum class ItemType : uint32_t {
    eBool = 0,       // true or false
    eInt = 1,        // a 64-bit integer
    eFloat = 2,      // a 64-bit float
    eString = 3,     // a text, zero-terminated
    eDictionary = 4, // named items
    eCount = 5,      // number of types; stands for "no item"
};

// Answer for one item of a merge: take the source, or keep what the destination has.
enum class UpdateAction : uint32_t {
    eOverwrite = 0, // take the source
    eKeep = 1,      // keep the destination
};

// Asked once per item that a merge is about to write. dstItem is null, and dstItemType eCount,
// where the destination has no item yet. userData is the pointer given to update.
using OnUpdateItemFn = UpdateAction (*)(const Item* dstItem,
                                        ItemType dstItemType,
                                        const Item* srcItem,
                                        ItemType srcItemType,
                                        void* userData);

// Accepts every item.
inline UpdateAction overwriteOriginal(const Item*, ItemType, const Item*, ItemType, void*) {
    return UpdateAction::eOverwrite;
}

// Accepts the items that the destination lacks and keeps those it has.
inline UpdateAction keepOriginal(const Item* dstItem, ItemType, const Item*, ItemType, void*) {
    return dstItem ? UpdateAction::eKeep : UpdateAction::eOverwrite;
}

// The two as update takes them.
constexpr OnUpdateItemFn kUpdateItemOverwriteOriginal = &overwriteOriginal;
constexpr OnUpdateItemFn kUpdateItemKeepOriginal = &keepOriginal;

// The table. What holds for all of its slots is said at the top of IDictionary.h.
struct IDictionary {
    // Name and version, for acquiring the table.
    static constexpr InterfaceDesc getInterfaceDesc() {
        return {"vorn::dictionary::IDictionary", {0, 4}};
    }

    // -- items and trees

    // The item at path below base, or null. [reads]
    const Item* (*getItem)(const Item* base, const char* path);
    Item* (*getItemMutable)(Item* base, const char* path);

    // Number of children; 0 for a value. [reads]
    size_t (*getItemChildCount)(const Item* item);

    // The child at that place in the order of creation, or null past the end. [reads]
    const Item* (*getItemChildByIndex)(const Item* item, size_t childIndex);
    Item* (*getItemChildByIndexMutable)(Item* item, size_t childIndex);

    // The parent; null for a root. [reads]
    const Item* (*getItemParent)(const Item* item);
    Item* (*getItemParentMutable)(Item* item);

    // The type; eCount for a null item. [reads]
    ItemType (*getItemType)(const Item* item);

    // A copy of the name, given back with destroyStringBuffer. [reads]
    const char* (*createStringBufferFromItemName)(const Item* item);

    // The item's own name, the last component of its path; a root's whole path. [reads]
    const char* (*getItemName)(const Item* item);

    // Makes sure that there is an item of that type at path below parent and returns it. Missing
    // dictionaries on the way are created, a value on the way becomes a dictionary. An item that
    // exists with the type is left as it is; with another type it gets the type and that type's
    // neutral value (false, 0, 0.0, "", no children). A null parent makes a free-standing root
    // named by the whole path. Null for an impossible path or type, or when memory is exhausted.
    // [creates]
    Item* (*createItem)(Item* parent, const char* path, ItemType itemType);

    // -- scalars

    // Whether the value can be read as itemType, with conversion: bool, int and float as each
    // other; a string as a number or bool when its whole text is one; every value as a string; a
    // dictionary as a dictionary only. [reads]
    bool (*isAccessibleAs)(ItemType itemType, const Item* item);

    // The value converted; 0, 0.0 or false when it is not accessible. A float truncates to an
    // integer and saturates, NaN gives 0; a number is true when it is not 0. [reads]
    int64_t (*getAsInt64)(const Item* item);
    // Stores the value and its type in place; children of a dictionary are destroyed. [writes]
    void (*setInt64)(Item* item, int64_t value);
    // As getAsInt64 and setInt64.
    double (*getAsFloat64)(const Item* item);
    void (*setFloat64)(Item* item, double value);
    bool (*getAsBool)(const Item* item);
    void (*setBool)(Item* item, bool value);

    // A new string with the value in text form, given back with destroyStringBuffer: integers in
    // decimal, floats in the shortest form that reads back to the same value, "true" or "false".
    // Null for a dictionary. Beside a writer: the old text or the new one, whole. [reads]
    const char* (*createStringBufferFromItemValue)(const Item* item);

    // The item's own string; null for any other type. [reads]
    const char* (*getStringBuffer)(const Item* item);
    // A null value stores "". [writes]
    void (*setString)(Item* item, const char* value);

    // -- arrays

    // Whether item is an array, and one whose elements are all accessible as itemType. [reads]
    bool (*isAccessibleAsArray)(const Item* item);
    bool (*isAccessibleAsArrayOf)(ItemType itemType, const Item* item);

    // Number of elements; 0 when item is no array. [reads]
    size_t (*getArrayLength)(const Item* item);

    // The narrowest of bool, int, float, string that every element is accessible as without
    // loss; eDictionary for an array of dictionaries; eCount when item is no array or empty.
    // [reads]
    ItemType (*getPreferredArrayType)(const Item* item);

    // -- elements by type
    //
    // Elements read as by the scalar reads; a missing element reads as a null item. The At
    // setters create the element, as createItem would. The whole-array reads fill at most
    // arrayBufferLength elements and leave places without an element alone. [reads]
    //
    // The whole-array setters make item an array of exactly arrayLength elements: elements that
    // exist are overwritten in place, the others created or destroyed. An array of no elements
    // is an empty dictionary; a null array counts as one of no elements. [writes]

    // Elements as integers.
    int64_t (*getAsInt64At)(const Item* item, size_t index);
    void (*setInt64At)(Item* item, size_t index, int64_t value);
    void (*getAsInt64Array)(const Item* item, int64_t* arrayOut, size_t arrayBufferLength);
    void (*setInt64Array)(Item* item, const int64_t* array, size_t arrayLength);
    void (*getAsIntArray)(const Item* item, int32_t* arrayOut, size_t arrayBufferLength);
    void (*setIntArray)(Item* item, const int32_t* array, size_t arrayLength);
    // Elements as floats.
    double (*getAsFloat64At)(const Item* item, size_t index);
    void (*setFloat64At)(Item* item, size_t index, double value);
    void (*getAsFloat64Array)(const Item* item, double* arrayOut, size_t arrayBufferLength);
    void (*setFloat64Array)(Item* item, const double* array, size_t arrayLength);
    void (*getAsFloatArray)(const Item* item, float* arrayOut, size_t arrayBufferLength);
    void (*setFloatArray)(Item* item, const float* array, size_t arrayLength);
    // Elements as bools.
    bool (*getAsBoolAt)(const Item* item, size_t index);
    void (*setBoolAt)(Item* item, size_t index, bool value);
    void (*getAsBoolArray)(const Item* item, bool* arrayOut, size_t arrayBufferLength);
    void (*setBoolArray)(Item* item, const bool* array, size_t arrayLength);
    // Elements as texts: new ones, given back with destroyStringBuffer, and the elements' own.
    const char* (*createStringBufferFromItemValueAt)(const Item* item, size_t index);
    const char* (*getStringBufferAt)(const Item* item, size_t index);
    void (*setStringAt)(Item* item, size_t index, const char* value);
    void (*getStringBufferArray)(const Item* item, const char** arrayOut, size_t arrayBufferLength);
    void (*setStringArray)(Item* item, const char* const* array, size_t arrayLength);

    // The element itself, or null. getItemArray fills as the whole-array reads do. [reads]
    const Item* (*getItemAt)(const Item* item, size_t index);
    Item* (*getItemAtMutable)(Item* item, size_t index);
    void (*getItemArray)(const Item* item, const Item** arrayOut, size_t arrayBufferLength);

    // -- merging and destroying

    // Merges what lies at srcPath below src into dstPath below dst, parents before children and
    // children in source order. onUpdateItemFn is asked for every value, and for every dictionary
    // that the destination lacks or holds as a value; a dictionary that both sides have is entered
    // without asking. eKeep on a dictionary skips what is below it. Items that exist are
    // overwritten in place. A missing source changes nothing; a missing destination is created
    // with the first accepted item. Source and destination may lie in one tree. A null callback
    // accepts everything; a callback must not remove items of either side. [writes, creates;
    // reads of the source; removes what lies below a dictionary that becomes a value]
    void (*update)(Item* dst,
                   const char* dstPath,
                   const Item* src,
                   const char* srcPath,
                   OnUpdateItemFn onUpdateItemFn,
                   void* userData);

    // Destroys the item and everything below it and detaches it from its parent. [removes]
    void (*destroyItem)(Item* item);

    // Gives back a string made by one of the createStringBuffer slots; null is ignored.
    void (*destroyStringBuffer)(const char* stringBuffer);

    // -- conveniences over the slots, compiled into the caller; 32-bit results saturate

    // The 64-bit slots for 32-bit values. What does not fit when read becomes the nearest value
    // that does.
    int32_t getAsInt(const Item* item) const {
        return saturateToInt32(getAsInt64(item));
    }
    void setInt(Item* item, int32_t value) const {
        setInt64(item, value);
    }
    float getAsFloat(const Item* item) const {
        return saturateToFloat(getAsFloat64(item));
    }
    void setFloat(Item* item, float value) const {
        setFloat64(item, static_cast<double>(value));
    }
    int32_t getAsIntAt(const Item* item, size_t index) const {
        return saturateToInt32(getAsInt64At(item, index));
    }
    void setIntAt(Item* item, size_t index, int32_t value) const {
        setInt64At(item, index, value);
    }
    float getAsFloatAt(const Item* item, size_t index) const {
        return saturateToFloat(getAsFloat64At(item, index));
    }
    void setFloatAt(Item* item, size_t index, float value) const {
        setFloat64At(item, index, static_cast<double>(value));
    }

    // Finds or creates the item at path below parent, stores the value, and returns the item;
    // null when it cannot be created. makeDictionaryAtPath keeps the children of a dictionary
    // that exists.
    Item* makeInt64AtPath(Item* parent, const char* path, int64_t value) const {
        Item* item = createItem(parent, path, ItemType::eInt);
        setInt64(item, value);
        return item;
    }
    Item* makeIntAtPath(Item* parent, const char* path, int32_t value) const {
        return makeInt64AtPath(parent, path, value);
    }
    Item* makeFloat64AtPath(Item* parent, const char* path, double value) const {
        Item* item = createItem(parent, path, ItemType::eFloat);
        setFloat64(item, value);
        return item;
    }
    Item* makeFloatAtPath(Item* parent, const char* path, float value) const {
        return makeFloat64AtPath(parent, path, static_cast<double>(value));
    }
    Item* makeBoolAtPath(Item* parent, const char* path, bool value) const {
        Item* item = createItem(parent, path, ItemType::eBool);
        setBool(item, value);
        return item;
    }
    Item* makeStringAtPath(Item* parent, const char* path, const char* value) const {
        Item* item = createItem(parent, path, ItemType::eString);
        setString(item, value);
        return item;
    }
    Item* makeDictionaryAtPath(Item* parent, const char* path) const {
        return createItem(parent, path, ItemType::eDictionary);
    }

    // Destroys every child; the item stays.
    void deleteChildren(Item* item) const {
        for (size_t count = getItemChildCount(item); count > 0; --count) {
            destroyItem(getItemChildByIndexMutable(item, count - 1));
        }
    }
};

static_assert(sizeof(ItemType) == 4 && sizeof(UpdateAction) == 4, "32-bit enums");
static_assert(sizeof(IDictionary) == 52 * sizeof(void (*)()), "52 slots");
static_assert(offsetof(IDictionary, createItem) == 10 * sizeof(void (*)()), "slot 10");
static_assert(offsetof(IDictionary, getPreferredArrayType) == 24 * sizeof(void (*)()), "slot 24");
static_assert(offsetof(IDictionary, update) == 49 * sizeof(void (*)()), "slot 49");
static_assert(offsetof(IDictionary, destroyStringBuffer) == 51 * sizeof(void (*)()), "slot 51");

} // namespace vorn::dictionary
