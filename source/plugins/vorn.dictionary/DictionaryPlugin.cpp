// The dictionary plugin: the 52 slots over one Tree, the table, and the entry points.
//
// The slots decide what a null item gets and which conversion applies; everything about trees is
// Tree's, everything about values is Conversion's.

#include "Conversion.h"
#include "ElementName.h"
#include "Merge.h"
#include "Tree.h"

#include <vorn/PluginUtils.h>
#include <vorn/dictionary/IDictionary.h>

#include <new>

VORN_PLUGIN_GLOBALS("vorn.dictionary.plugin")

namespace vorn::dictionary {

namespace {

// Holds every item; released by shut-down, or at the latest when the library is unloaded.
constinit Tree g_tree;
constinit MergePlans g_mergePlans; // of merges within it

// The contract hands out const items for reading; the tree has one kind of pointer.
Item* mutableItem(const Item* item) {
    return const_cast<Item*>(item); // NOLINT(cppcoreguidelines-pro-type-const-cast)
}

// ------------------------------------------------------------------------------ items and trees

Item* getItemMutableImpl(Item* base, const char* path) {
    return g_tree.find(base, path);
}

const Item* getItemImpl(const Item* base, const char* path) {
    return g_tree.find(mutableItem(base), path);
}

size_t getItemChildCountImpl(const Item* item) {
    return item ? g_tree.childCount(item) : 0;
}

Item* getItemChildByIndexMutableImpl(Item* item, size_t childIndex) {
    return item ? g_tree.child(item, childIndex) : nullptr;
}

const Item* getItemChildByIndexImpl(const Item* item, size_t childIndex) {
    return item ? g_tree.child(item, childIndex) : nullptr;
}

Item* getItemParentMutableImpl(Item* item) {
    return item ? item->parent() : nullptr;
}

const Item* getItemParentImpl(const Item* item) {
    return item ? item->parent() : nullptr;
}

ItemType getItemTypeImpl(const Item* item) {
    return item ? item->type() : ItemType::eCount;
}

const char* getItemNameImpl(const Item* item) {
    return item ? item->name() : nullptr;
}

const char* createStringBufferFromItemNameImpl(const Item* item) {
    return item ? createCopy(item->nameView()) : nullptr;
}

Item* createItemImpl(Item* parent, const char* path, ItemType itemType) {
    return parent ? g_tree.create(parent, path, itemType) : g_tree.createRoot(path, itemType);
}

// -------------------------------------------------------------------------------------- scalars

bool isAccessibleAsImpl(ItemType itemType, const Item* item) {
    return item && isAccessible(g_tree, itemType, item);
}

int64_t getAsInt64Impl(const Item* item) {
    if (item) [[likely]] {
        const Value value = item->read();
        if (value.type() == ItemType::eInt) [[likely]] {
            return static_cast<int64_t>(value.payload);
        }
    }
    return item ? readScalar(g_tree, item).asInt64() : 0;
}

double getAsFloat64Impl(const Item* item) {
    return item ? readScalar(g_tree, item).asFloat64() : 0.0;
}

bool getAsBoolImpl(const Item* item) {
    return item && readScalar(g_tree, item).asBool();
}

void setInt64Impl(Item* item, int64_t value) {
    if (item) {
        g_tree.setValue(item, ItemType::eInt, payloadOf(value));
    }
}

void setFloat64Impl(Item* item, double value) {
    if (item) {
        g_tree.setValue(item, ItemType::eFloat, payloadOf(value));
    }
}

void setBoolImpl(Item* item, bool value) {
    if (item) {
        g_tree.setValue(item, ItemType::eBool, payloadOf(value));
    }
}

// What is to be stored for a copy of the text.
uint64_t createPayload(const char* value) {
    uint64_t payload;
    if (!g_tree.strings().create(value, &payload)) {
        throw std::bad_alloc();
    }
    return payload;
}

void setStringImpl(Item* item, const char* value) {
    if (item) {
        g_tree.setValue(item, ItemType::eString, createPayload(value));
    }
}

const char* createStringBufferFromItemValueImpl(const Item* item) {
    return item ? createText(g_tree, item) : nullptr;
}

const char* getStringBufferImpl(const Item* item) {
    if (!item) {
        return nullptr;
    }
    const Value value = item->read();
    return value.type() == ItemType::eString ? StringBlock::textOf(value.payload) : nullptr;
}

// --------------------------------------------------------------------------------------- arrays

bool isAccessibleAsArrayImpl(const Item* item) {
    return item && g_tree.arrayLength(item) > 0;
}

bool isAccessibleAsArrayOfImpl(ItemType itemType, const Item* item) {
    const size_t length = item ? g_tree.arrayLength(item) : 0;
    for (size_t i = 0; i < length; ++i) {
        const Item* element = g_tree.child(item, i);
        if (!element || !isAccessible(g_tree, itemType, element)) {
            return false;
        }
    }
    return length > 0;
}

size_t getArrayLengthImpl(const Item* item) {
    return item ? g_tree.arrayLength(item) : 0;
}

ItemType getPreferredArrayTypeImpl(const Item* item) {
    return item ? preferredElementType(g_tree, item) : ItemType::eCount;
}

Item* getItemAtMutableImpl(Item* item, size_t index) {
    const ElementName name(index);
    return item ? g_tree.find(item, name.text(), name.view().size()) : nullptr;
}

const Item* getItemAtImpl(const Item* item, size_t index) {
    return getItemAtMutableImpl(mutableItem(item), index);
}

// One element.
template <auto readSlot>
auto readAt(const Item* item, size_t index) {
    return readSlot(getItemAtImpl(item, index));
}

template <ItemType type, class Element>
void writeAt(Item* item, size_t index, Element value) {
    if (item) {
        const ElementName name(index);
        if (!g_tree.createWith(item, name.text(), type, payloadOf(value))) {
            throw std::bad_alloc();
        }
    }
}

// The text is copied first: it may be the element's own.
void setStringAtImpl(Item* item, size_t index, const char* value) {
    if (!item) {
        return;
    }
    const ElementName name(index);
    const uint64_t payload = createPayload(value);
    if (!g_tree.createWith(item, name.text(), ItemType::eString, payload)) {
        g_tree.strings().discard(payload);
        throw std::bad_alloc();
    }
}

// A whole array, each element converted by readElement.
template <class Element, class ReadElement>
void readArray(const Item* item, Element* arrayOut, size_t length, ReadElement readElement) {
    for (size_t i = 0; i < length; ++i) {
        if (const Item* element = getItemAtImpl(item, i)) {
            arrayOut[i] = readElement(element);
        }
    }
}

// Lengths that no array can have change nothing.
bool isPossibleLength(size_t arrayLength) {
    return arrayLength <= ChildListPool::kMaxCapacity;
}

template <ItemType type, class Stored, class Element>
void writeArray(Item* item, const Element* array, size_t arrayLength) {
    const size_t length = array ? arrayLength : 0;
    const auto payloadAt = [array](size_t i) { return payloadOf(static_cast<Stored>(array[i])); };
    if (item && isPossibleLength(length) && !g_tree.setArray(item, length, type, payloadAt)) {
        throw std::bad_alloc();
    }
}

void getAsInt64ArrayImpl(const Item* item, int64_t* arrayOut, size_t arrayBufferLength) {
    readArray(item, arrayOut, arrayBufferLength, getAsInt64Impl);
}

void getAsIntArrayImpl(const Item* item, int32_t* arrayOut, size_t arrayBufferLength) {
    readArray(item, arrayOut, arrayBufferLength,
              [](const Item* element) { return saturateToInt32(getAsInt64Impl(element)); });
}

void getAsFloat64ArrayImpl(const Item* item, double* arrayOut, size_t arrayBufferLength) {
    readArray(item, arrayOut, arrayBufferLength, getAsFloat64Impl);
}

void getAsFloatArrayImpl(const Item* item, float* arrayOut, size_t arrayBufferLength) {
    readArray(item, arrayOut, arrayBufferLength,
              [](const Item* element) { return saturateToFloat(getAsFloat64Impl(element)); });
}

void getAsBoolArrayImpl(const Item* item, bool* arrayOut, size_t arrayBufferLength) {
    readArray(item, arrayOut, arrayBufferLength, getAsBoolImpl);
}

void getStringBufferArrayImpl(const Item* item, const char** arrayOut, size_t arrayBufferLength) {
    readArray(item, arrayOut, arrayBufferLength, getStringBufferImpl);
}

void getItemArrayImpl(const Item* item, const Item** arrayOut, size_t arrayBufferLength) {
    readArray(item, arrayOut, arrayBufferLength, [](const Item* element) { return element; });
}

// All texts are copied before the first element changes: they may be the elements' own.
void setStringArrayImpl(Item* item, const char* const* array, size_t arrayLength) {
    const size_t length = array ? arrayLength : 0;
    if (!item || !isPossibleLength(length)) {
        return;
    }
    uint64_t* payloads = new (std::nothrow) uint64_t[length];
    size_t copied = 0;
    while (payloads && copied < length &&
           g_tree.strings().create(array[copied], payloads + copied)) {
        ++copied;
    }
    const auto payloadAt = [payloads](size_t i) { return payloads[i]; };
    const bool isStored =
        payloads && copied == length && g_tree.setArray(item, length, ItemType::eString, payloadAt);
    for (size_t i = 0; i < copied && !isStored; ++i) {
        g_tree.strings().discard(payloads[i]);
    }
    delete[] payloads;
    if (!isStored) {
        throw std::bad_alloc();
    }
}

// ------------------------------------------------------------------------ merging and destroying

void updateImpl(Item* dst,
                const char* dstPath,
                const Item* src,
                const char* srcPath,
                OnUpdateItemFn onUpdateItemFn,
                void* userData) {
    if (dst && src) {
        merge(g_tree, g_mergePlans, dst, dstPath, mutableItem(src), srcPath,
              onUpdateItemFn ? onUpdateItemFn : kUpdateItemOverwriteOriginal, userData);
    }
}

void destroyItemImpl(Item* item) {
    if (item) {
        g_tree.destroy(item);
    }
}

void destroyStringBufferImpl(const char* stringBuffer) {
    std::free(const_cast<char*>(stringBuffer)); // NOLINT(cppcoreguidelines-pro-type-const-cast)
}

// ------------------------------------------------------------------------ table and entry points

constexpr IDictionary kDictionaryImpl = {
    .getItem = getItemImpl,
    .getItemMutable = getItemMutableImpl,
    .getItemChildCount = getItemChildCountImpl,
    .getItemChildByIndex = getItemChildByIndexImpl,
    .getItemChildByIndexMutable = getItemChildByIndexMutableImpl,
    .getItemParent = getItemParentImpl,
    .getItemParentMutable = getItemParentMutableImpl,
    .getItemType = getItemTypeImpl,
    .createStringBufferFromItemName = createStringBufferFromItemNameImpl,
    .getItemName = getItemNameImpl,
    .createItem = createItemImpl,
    .isAccessibleAs = isAccessibleAsImpl,
    .getAsInt64 = getAsInt64Impl,
    .setInt64 = setInt64Impl,
    .getAsFloat64 = getAsFloat64Impl,
    .setFloat64 = setFloat64Impl,
    .getAsBool = getAsBoolImpl,
    .setBool = setBoolImpl,
    .createStringBufferFromItemValue = createStringBufferFromItemValueImpl,
    .getStringBuffer = getStringBufferImpl,
    .setString = setStringImpl,
    .isAccessibleAsArray = isAccessibleAsArrayImpl,
    .isAccessibleAsArrayOf = isAccessibleAsArrayOfImpl,
    .getArrayLength = getArrayLengthImpl,
    .getPreferredArrayType = getPreferredArrayTypeImpl,
    .getAsInt64At = readAt<getAsInt64Impl>,
    .setInt64At = writeAt<ItemType::eInt>,
    .getAsInt64Array = getAsInt64ArrayImpl,
    .setInt64Array = writeArray<ItemType::eInt, int64_t>,
    .getAsIntArray = getAsIntArrayImpl,
    .setIntArray = writeArray<ItemType::eInt, int64_t>,
    .getAsFloat64At = readAt<getAsFloat64Impl>,
    .setFloat64At = writeAt<ItemType::eFloat>,
    .getAsFloat64Array = getAsFloat64ArrayImpl,
    .setFloat64Array = writeArray<ItemType::eFloat, double>,
    .getAsFloatArray = getAsFloatArrayImpl,
    .setFloatArray = writeArray<ItemType::eFloat, double>,
    .getAsBoolAt = readAt<getAsBoolImpl>,
    .setBoolAt = writeAt<ItemType::eBool>,
    .getAsBoolArray = getAsBoolArrayImpl,
    .setBoolArray = writeArray<ItemType::eBool, bool>,
    .createStringBufferFromItemValueAt = readAt<createStringBufferFromItemValueImpl>,
    .getStringBufferAt = readAt<getStringBufferImpl>,
    .setStringAt = setStringAtImpl,
    .getStringBufferArray = getStringBufferArrayImpl,
    .setStringArray = setStringArrayImpl,
    .getItemAt = getItemAtImpl,
    .getItemAtMutable = getItemAtMutableImpl,
    .getItemArray = getItemArrayImpl,
    .update = updateImpl,
    .destroyItem = destroyItemImpl,
    .destroyStringBuffer = destroyStringBufferImpl,
};

constexpr PluginImplDesc kPluginImpl = {
    "vorn.dictionary.plugin", "Dictionary service", "Vorn", PluginHotReload::eDisabled, "dev",
};

void fillInterface(IDictionary& iface) {
    iface = kDictionaryImpl;
}

} // namespace

} // namespace vorn::dictionary

VORN_EXPORT void vornOnPluginRegister(vorn::Framework* framework,
                                      vorn::PluginRegistryEntry* entry) {
    using namespace vorn::dictionary;
    vorn::onPluginRegister<IDictionary>(framework, entry, kPluginImpl, fillInterface);
}

VORN_EXPORT vorn::Version vornGetFrameworkVersion() {
    return vorn::kFrameworkVersion;
}

VORN_EXPORT void vornGetPluginDeps(vorn::InterfaceDesc** deps, size_t* count) {
    vorn::getPluginDepsTyped<>(deps, count);
}

// Trees come into being with their first item.
VORN_EXPORT void vornOnPluginStartup() {}

VORN_EXPORT void vornOnPluginShutdown() {
    vorn::dictionary::g_mergePlans.release();
    vorn::dictionary::g_tree.release();
}
