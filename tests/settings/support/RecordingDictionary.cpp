#include "RecordingDictionary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>

namespace foreign {

RecordingDictionary g_recorder;

namespace {

struct Node {
    std::string name;
    ItemType type;
    Node* parent;
    int64_t integer = 0; // a bool's too
    double number = 0;
    std::string text;
    std::vector<std::unique_ptr<Node>> children;

    Node(std::string_view nodeName, ItemType nodeType, Node* nodeParent)
        : name(nodeName), type(nodeType), parent(nodeParent) {
        g_recorder.items.insert(this);
        g_recorder.lastRoot = parent ? g_recorder.lastRoot : reinterpret_cast<Item*>(this);
    }
    ~Node() {
        g_recorder.items.erase(this);
    }
};

[[noreturn]] void refuse(const char* what) {
    fprintf(stderr, "the store misused the dictionary service: %s\n", what);
    abort();
}

Node* toNode(const Item* item) {
    if (!g_recorder.items.count(item)) {
        refuse(item ? "item that was destroyed" : "null item");
    }
    return reinterpret_cast<Node*>(const_cast<Item*>(item));
}

Item* toItem(Node* node) {
    return reinterpret_cast<Item*>(node);
}

// -- what was called

template <class T>
std::string show(T value) {
    if constexpr (std::is_convertible_v<T, const Item*>) {
        return describe(RecordingDictionary::kTable, value);
    } else if constexpr (std::is_same_v<T, const char*>) {
        return value ? "'" + std::string(value) + "'" : "null";
    } else if constexpr (std::is_same_v<T, OnUpdate>) {
        return value ? "callback" : "null";
    } else if constexpr (std::is_same_v<T, void*>) {
        return value ? "data" : "null";
    } else if constexpr (std::is_same_v<T, ItemType>) {
        const char* const names[] = {"bool", "int", "float", "string", "dictionary", "count"};
        return names[value];
    } else {
        return testing::PrintToString(value);
    }
}

template <class... Arguments>
void note(const char* slot, Arguments... arguments) {
    if (g_host.pauseDepth == 0) {
        std::string line = slot;
        const char* separator = "(";
        ((line += separator + show(arguments), separator = ", "), ...);
        g_host.calls.push_back(line + ")");
    }
}

Item* noteResult(Node* result) {
    if (g_host.pauseDepth == 0) {
        g_host.calls.back() += " -> " + show(toItem(result));
    }
    return toItem(result);
}

// -- the tree

// The first name of a path, and what follows it.
std::pair<std::string_view, std::string_view> cut(std::string_view path) {
    const size_t slash = std::min(path.find('/'), path.size());
    return {path.substr(0, slash), path.substr(std::min(slash + 1, path.size()))};
}

Node* findChild(Node* parent, std::string_view name) {
    for (auto& child : parent->children) {
        if (child->name == name && !name.empty()) {
            return child.get();
        }
    }
    return nullptr;
}

Node* find(Node* base, std::string_view path) {
    const auto [name, rest] = cut(path);
    return !base || path.empty() ? base : find(findChild(base, name), rest);
}

Node* addChild(Node* parent, std::string_view name, ItemType type) {
    return parent->children.emplace_back(std::make_unique<Node>(name, type, parent)).get();
}

Node* create(Node* parent, std::string_view path, ItemType type) {
    const auto [name, rest] = cut(path);
    if (path.empty()) {
        parent->type = type;
        return parent;
    }
    Node* child = findChild(parent, name);
    return create(child ? child : addChild(parent, name, eDictionary), rest, type);
}

void makeValue(Node* node, ItemType type) {
    node->type = type;
    node->children.clear();
}

template <class T>
void store(Node* node, T value) {
    if constexpr (std::is_same_v<T, const char*>) {
        makeValue(node, eString);
        node->text = value ? value : "";
    } else {
        makeValue(node, std::is_same_v<T, bool> ? eBool : std::is_integral_v<T> ? eInt : eFloat);
        node->integer = static_cast<int64_t>(value);
        node->number = static_cast<double>(value);
    }
}

// Asks for values, and for dictionaries that the destination lacks or holds as a value.
void merge(
    Node* base, const std::string& path, Node* dst, Node* src, OnUpdate onUpdate, void* userData) {
    if (!dst || dst->type != eDictionary || src->type != eDictionary) {
        const ItemType dstType = dst ? dst->type : eCount;
        if (onUpdate(toItem(dst), dstType, toItem(src), src->type, userData) != eOverwrite) {
            return;
        }
        dst = dst ? dst : create(base, path, src->type);
        makeValue(dst, src->type);
        dst->integer = src->integer;
        dst->number = src->number;
        dst->text = src->text;
    }
    for (auto& child : src->children) {
        const std::string childPath = path.empty() ? child->name : path + "/" + child->name;
        merge(base, childPath, findChild(dst, child->name), child.get(), onUpdate, userData);
    }
}

const char* makeBuffer(const Node& node) {
    const std::string text = node.type == eString ? node.text : show(node.integer);
    const char* buffer = node.type == eDictionary ? nullptr : strdup(text.c_str());
    if (buffer) {
        g_recorder.buffers.insert(buffer);
    }
    return buffer;
}

// -- slots, each under its own name

template <size_t size> // a text as template argument
struct SlotName {
    char text[size];
    constexpr SlotName(const char (&name)[size]) {
        std::copy_n(name, size, text);
    }
};

template <size_t number>
void never() {
    refuse(("slot " + std::to_string(number)).c_str());
}

template <size_t... numbers>
IDictionary makeRefusingTable(std::index_sequence<numbers...>) {
    const Slot slots[] = {never<numbers>...};
    IDictionary table;
    memcpy(&table, slots, sizeof(table));
    return table;
}

template <SlotName slot, class T>
T* lookUp(T* base, const char* path) {
    note(slot.text, base, path);
    return noteResult(base ? find(toNode(base), path ? path : "") : nullptr);
}

template <SlotName slot, auto read>
auto get(const Item* item) {
    note(slot.text, item);
    return read(*toNode(item));
}

template <SlotName slot, class T>
void set(Item* item, T value) {
    note(slot.text, item, value);
    store(toNode(item), value);
}

template <SlotName slot, class T>
void setArray(Item* item, const T* array, size_t length) {
    std::string line = std::string(slot.text) + "(" + show(item) + ", [";
    makeValue(toNode(item), eDictionary);
    for (size_t i = 0; i < length; ++i) {
        line += (i ? ", " : "") + show(array[i]);
        store(addChild(toNode(item), std::to_string(i), eInt), array[i]);
    }
    g_host.calls.push_back(line + "])");
}

} // namespace

void RecordingDictionary::addChild(Item* parent, const char* name, int64_t value) {
    store(foreign::addChild(toNode(parent), name, eInt), value);
}

const IDictionary RecordingDictionary::kTable = [] {
    IDictionary table = makeRefusingTable(std::make_index_sequence<52>());
    table.getItem = lookUp<"getItem">;
    table.getItemMutable = lookUp<"getItemMutable">;
    table.getItemChildCount = get<"getItemChildCount", [](auto& n) {
        return n.children.size() + g_recorder.missingChildren;
    }>;
    table.getItemChildByIndex = [](const Item* item, size_t index) -> const Item* {
        note("getItemChildByIndex", item, index);
        auto& children = toNode(item)->children;
        return noteResult(index < children.size() ? children[index].get() : nullptr);
    };
    table.getItemParent =
        get<"getItemParent", [](auto& n) -> const Item* { return toItem(n.parent); }>;
    table.getItemType = [](const Item* item) {
        note("getItemType", item);
        return item ? toNode(item)->type : eCount;
    };
    table.getItemName = get<"getItemName", [](auto& n) { return n.name.c_str(); }>;
    table.createItem = [](Item* parent, const char* path, ItemType type) {
        note("createItem", parent, path, type);
        return noteResult(g_recorder.isCreateFailing ? nullptr
                          : parent                   ? create(toNode(parent), path, type)
                                                     : new Node(path, type, nullptr));
    };
    table.isAccessibleAs = [](ItemType type, const Item* item) {
        note("isAccessibleAs", type, item);
        const ItemType own = item ? toNode(item)->type : eCount;
        return own == type || (own < eString && type <= eString);
    };
    table.getAsInt64 = get<"getAsInt64", [](auto& n) { return n.integer; }>;
    table.setInt64 = set<"setInt64">;
    table.getAsFloat64 = get<"getAsFloat64", [](auto& n) { return n.number; }>;
    table.setFloat64 = set<"setFloat64">;
    table.getAsBool = get<"getAsBool", [](auto& n) { return n.number != 0; }>;
    table.setBool = set<"setBool">;
    table.createStringBufferFromItemValue = get<"createStringBufferFromItemValue", makeBuffer>;
    table.getStringBuffer = get<"getStringBuffer", [](auto& n) { return n.text.c_str(); }>;
    table.setString = set<"setString">;
    table.getPreferredArrayType = get<"getPreferredArrayType", [](auto&) { return eInt; }>;
    table.setInt64Array = setArray<"setInt64Array">;
    table.setIntArray = setArray<"setIntArray">;
    table.setFloat64Array = setArray<"setFloat64Array">;
    table.setFloatArray = setArray<"setFloatArray">;
    table.setBoolArray = setArray<"setBoolArray">;
    table.setStringArray = setArray<"setStringArray">;
    table.update = [](Item* dst, const char* dstPath, const Item* src, const char* srcPath,
                      OnUpdate onUpdate, void* userData) {
        note("update", dst, dstPath, src, srcPath, onUpdate, userData);
        std::string path = dstPath ? dstPath : "";
        path.erase(path.find_last_not_of('/') + 1);
        if (Node* source = src ? find(toNode(src), srcPath ? srcPath : "") : nullptr) {
            Node* base = toNode(dst);
            merge(base, path, find(base, path), source, onUpdate, userData);
        }
    };
    table.destroyItem = [](Item* item) {
        note("destroyItem", item);
        Node* node = toNode(item);
        if (!node->parent) {
            delete node;
            return;
        }
        std::erase_if(node->parent->children, [&](auto& c) { return c.get() == node; });
    };
    table.destroyStringBuffer = [](const char* buffer) {
        note("destroyStringBuffer", buffer);
        if (buffer && !g_recorder.buffers.erase(buffer)) {
            refuse("buffer that it did not make");
        }
        free(const_cast<char*>(buffer));
    };
    return table;
}();

} // namespace foreign
