#include "RecordingDictionary.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>

namespace foreign {

RecordingDictionary g_recorder;

struct Item {
    std::string name;
    Item* parent;
    ItemType type = eDictionary;
    std::string text; // of the value
    std::vector<std::unique_ptr<Item>> children;

    Item(std::string_view itemName, Item* itemParent) : name(itemName), parent(itemParent) {
        g_recorder.items.insert(this);
        g_recorder.lastRoot = parent ? g_recorder.lastRoot : this;
    }
    ~Item() {
        g_recorder.items.erase(this);
    }
};

namespace {

[[noreturn]] void refuse(const std::string& what) {
    fprintf(stderr, "the store misused the dictionary service: %s\n", what.c_str());
    abort();
}

Item* alive(const Item* item) {
    if (!g_recorder.items.count(item)) {
        refuse(item ? "item that was destroyed" : "null item");
    }
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

// The first name of a path, and what follows it.
std::pair<std::string_view, std::string_view> cut(std::string_view path) {
    const size_t slash = std::min(path.find('/'), path.size());
    return {path.substr(0, slash), path.substr(std::min(slash + 1, path.size()))};
}

Item* findChild(Item* parent, std::string_view name) {
    for (auto& child : parent->children) {
        if (child->name == name && !name.empty()) {
            return child.get();
        }
    }
    return nullptr;
}

Item* find(Item* base, std::string_view path) {
    const auto [name, rest] = cut(path);
    return !base || path.empty() ? base : find(findChild(base, name), rest);
}

Item* addChild(Item* parent, std::string_view name) {
    return parent->children.emplace_back(std::make_unique<Item>(name, parent)).get();
}

Item* create(Item* parent, std::string_view path, ItemType type) {
    const auto [name, rest] = cut(path);
    if (path.empty()) {
        parent->type = type;
        return parent;
    }
    Item* child = findChild(parent, name);
    return create(child ? child : addChild(parent, name), rest, type);
}

void store(Item* item, ItemType type, const std::string& text) {
    item->type = type;
    item->text = text;
    item->children.clear();
}

// Asks for values, and for dictionaries that the destination lacks or holds as a value.
void merge(
    Item* base, const std::string& path, Item* dst, Item* src, OnUpdate onUpdate, void* userData) {
    const ItemType dstType = dst ? dst->type : eCount, srcType = src->type;
    if (dstType != eDictionary || srcType != eDictionary) {
        if (onUpdate(dst, dstType, src, srcType, userData) != eOverwrite) {
            return;
        }
        dst = dst ? dst : create(base, path, srcType);
        store(dst, srcType, src->text);
    }
    for (auto& child : src->children) {
        const std::string childPath = path.empty() ? child->name : path + "/" + child->name;
        merge(base, childPath, findChild(dst, child->name), child.get(), onUpdate, userData);
    }
}

// -- slots

template <size_t number>
void never() {
    refuse("slot " + std::to_string(number));
}

template <size_t... numbers>
IDictionary makeRefusingTable(std::index_sequence<numbers...>) {
    const Slot slots[] = {never<numbers>...};
    IDictionary table;
    memcpy(&table, slots, sizeof(table));
    return table;
}

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

void RecordingDictionary::addChild(Item* parent, const char* name, int64_t value) {
    set(foreign::addChild(alive(parent), name), value);
}

const IDictionary RecordingDictionary::kTable = [] {
    IDictionary table = makeRefusingTable(std::make_index_sequence<52>());
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
        return parent ? create(alive(parent), path, type) : new Item(path, nullptr);
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
                    OnUpdate onUpdate, void* userData) {
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
        if (buffer && !g_recorder.buffers.erase(buffer)) {
            refuse("buffer that it did not make");
        }
        free(const_cast<char*>(buffer));
    });
    return table;
}();

} // namespace foreign
