#include "RecordingDictionary.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>

using namespace foreign;

struct V04Item {
    std::string name;
    Item* parent;
    ItemType type = eDictionary;
    std::string text; // of the value
    std::vector<std::unique_ptr<Item>> children;

    V04Item(std::string itemName, Item* itemParent)
        : name(std::move(itemName)), parent(itemParent) {
        g_recorder.items.insert(this);
    }
    ~V04Item() {
        g_recorder.items.erase(this);
    }
};

namespace foreign {

RecordingDictionary g_recorder;

Item* addChild(Item* parent, const std::string& name) {
    return parent->children.emplace_back(std::make_unique<Item>(name, parent)).get();
}

namespace {

Item* alive(const Item* item) {
    EXPECT_TRUE(g_recorder.items.count(item)) << "the store uses a null item or a destroyed one";
    return const_cast<Item*>(item);
}

// -- what was called

template <class... Arguments>
std::string showAll(Arguments... arguments) {
    return join({show(arguments)...}, ", ");
}

template <class T>
std::string showAll(Item* item, const T* array, size_t length) {
    return showAll(item, std::vector<T>(array, array + length));
}

// -- the tree

// The item at the path, made with all on the way where there is none, or null.
Item* find(Item* base, std::string_view path, bool canMake = false) {
    if (!base || path.empty()) {
        return base;
    }
    const size_t slash = std::min(path.find('/'), path.size());
    const std::string_view name = path.substr(0, slash);
    const std::string_view rest = path.substr(std::min(slash + 1, path.size()));
    for (auto& child : base->children) {
        if (child->name == name && !name.empty()) {
            return find(child.get(), rest, canMake);
        }
    }
    return canMake ? find(addChild(base, std::string(name)), rest, true) : nullptr;
}

void store(Item* item, ItemType type, const std::string& text) {
    item->type = type;
    item->text = text;
    item->children.clear();
}

// Asks for values, and for dictionaries that the destination lacks or holds as a value.
void merge(Item* base,
           const std::string& path,
           Item* dst,
           Item* src,
           V04OnUpdateItemFn onUpdate,
           void* userData) {
    const ItemType dstType = dst ? dst->type : eCount, srcType = src->type;
    if (dstType != eDictionary || srcType != eDictionary) {
        if (onUpdate(dst, dstType, src, srcType, userData) != eOverwrite) {
            return;
        }
        dst = dst ? dst : find(base, path, true);
        store(dst, srcType, src->text);
    }
    for (auto& child : src->children) {
        const std::string childPath = path.empty() ? child->name : path + "/" + child->name;
        merge(base, childPath, find(dst, child->name), child.get(), onUpdate, userData);
    }
}

// -- slots

// Writes the call down before it is carried out, and the item that comes of it afterwards.
template <class Act, class... Arguments>
auto record(const char* slot, Act act, Arguments... arguments) {
    if (g_host.pauseDepth == 0) {
        g_host.calls.push_back(slot + ("(" + showAll(arguments...) + ")"));
    }
    if constexpr (std::is_convertible_v<decltype(act(arguments...)), const Item*>) {
        const auto result = act(arguments...);
        if (g_host.pauseDepth == 0) {
            g_host.calls.back() += " -> " + show(result);
        }
        return result;
    } else {
        return act(arguments...);
    }
}

#define SLOT(name, ...)                                                                            \
    table.name = [](auto... arguments) { return record(#name, __VA_ARGS__, arguments...); }

template <class T>
T* lookUp(T* base, const char* path) {
    return base ? find(alive(base), path ? path : "") : nullptr;
}

template <class T>
void set(Item* item, T value) {
    const auto type = std::is_same_v<T, bool> ? eBool : std::is_integral_v<T> ? eInt : eFloat;
    store(alive(item), type, show(value));
}

void set(Item* item, const char* value) {
    store(alive(item), eString, value ? value : "");
}

template <class T>
void setArray(Item* item, const T* array, size_t length) {
    store(alive(item), eDictionary, "");
    for (size_t i = 0; i < length; ++i) {
        set(addChild(item, std::to_string(i)), array[i]);
    }
}

} // namespace

const IDictionary RecordingDictionary::kTable = [] {
    IDictionary table{}; // the others must not be called
    SLOT(getItem, lookUp<const Item>);
    SLOT(getItemMutable, lookUp<Item>);
    SLOT(getItemChildCount,
         [](auto* item) { return alive(item)->children.size() + g_recorder.missingChildren; });
    SLOT(getItemChildByIndex, [](auto* item, size_t index) -> const Item* {
        return index < alive(item)->children.size() ? item->children[index].get() : nullptr;
    });
    SLOT(getItemParent, [](auto* item) -> const Item* { return alive(item)->parent; });
    SLOT(getItemType, [](auto* item) { return item ? alive(item)->type : eCount; });
    SLOT(getItemName, [](auto* item) { return alive(item)->name.c_str(); });
    SLOT(createItem, [](Item* parent, const char* path, ItemType type) -> Item* {
        if (g_recorder.isCreateFailing) {
            return nullptr;
        }
        Item* const item = parent ? find(alive(parent), path, true) : new Item(path, nullptr);
        item->type = type;
        return item;
    });
    SLOT(isAccessibleAs, [](ItemType type, const Item* item) {
        const ItemType own = item ? alive(item)->type : eCount;
        return own == type || (own < eString && type <= eString);
    });
    SLOT(getAsInt64,
         [](auto* item) { return int64_t{strtoll(alive(item)->text.c_str(), nullptr, 10)}; });
    SLOT(setInt64, set<int64_t>);
    SLOT(getAsFloat64, [](auto* item) { return strtod(alive(item)->text.c_str(), nullptr); });
    SLOT(setFloat64, set<double>);
    SLOT(getAsBool, [](auto* item) { return alive(item)->text == "true"; });
    SLOT(setBool, set<bool>);
    SLOT(createStringBufferFromItemValue, [](auto* item) -> const char* {
        if (alive(item)->type == eDictionary) {
            return nullptr;
        }
        const char* buffer = strdup(item->text.c_str());
        g_recorder.buffers.insert(buffer);
        return buffer;
    });
    SLOT(getStringBuffer, [](auto* item) { return alive(item)->text.c_str(); });
    SLOT(setString, [](auto* item, auto* value) { set(item, value); });
    SLOT(getPreferredArrayType, [](auto*) { return eInt; });
    SLOT(setInt64Array, setArray<int64_t>);
    SLOT(setIntArray, setArray<int32_t>);
    SLOT(setFloat64Array, setArray<double>);
    SLOT(setFloatArray, setArray<float>);
    SLOT(setBoolArray, setArray<bool>);
    SLOT(setStringArray, setArray<const char*>);
    SLOT(update, [](Item* dst, const char* dstPath, const Item* src, const char* srcPath,
                    V04OnUpdateItemFn onUpdate, void* userData) {
        std::string path = dstPath ? dstPath : "";
        path.erase(path.find_last_not_of('/') + 1);
        if (const Item* source = lookUp(src, srcPath)) {
            merge(alive(dst), path, find(dst, path), alive(source), onUpdate, userData);
        }
    });
    SLOT(destroyItem, [](Item* item) {
        if (!alive(item)->parent) {
            delete item;
            return;
        }
        std::erase_if(item->parent->children, [&](auto& child) { return child.get() == item; });
    });
    SLOT(destroyStringBuffer, [](const char* buffer) {
        EXPECT_TRUE(!buffer || g_recorder.buffers.erase(buffer)) << "not made here";
        free(const_cast<char*>(buffer));
    });
    return table;
}();

} // namespace foreign
