// The slots, each as its comment in the contract says.
#include "DictionaryModel.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace vorn::fuzz {

namespace {

std::vector<std::shared_ptr<Node>> g_roots;

Node* find(const Item* base, const char* path) {
    return base ? toNode(base)->find(path ? path : "") : nullptr;
}

Node* element(const Item* item, size_t index) {
    return item ? toNode(item)->element(index) : nullptr;
}

const char* newText(const std::optional<std::string>& text) {
    return text ? strdup(text->c_str()) : nullptr;
}

const char* ownText(const Node* node) {
    const auto* text = node ? std::get_if<std::string>(&node->value) : nullptr;
    return text ? text->c_str() : nullptr;
}

// The conversions of a value, and nothing for no node.
template <auto convert>
auto valueOf(const Node* node) {
    return node ? convert(node->value) : decltype(convert(Value()))();
}

int32_t toInt32(const Value& value) {
    return saturateToInt32(toInt64(value));
}
float toFloat32(const Value& value) {
    return saturateToFloat(toFloat64(value));
}

template <class T>
T fromArgument(T argument) {
    return argument;
}
int64_t fromArgument(int32_t argument) {
    return argument;
}
double fromArgument(float argument) {
    return argument;
}
std::string fromArgument(const char* argument) {
    return argument ? argument : "";
}

template <class T>
void set(Item* item, T value) {
    if (item) {
        toNode(item)->set(fromArgument(value));
    }
}

template <class T>
void setAt(Item* item, size_t index, T value) {
    if (item) {
        const Value stored = fromArgument(value);
        toNode(item)
            ->create(std::to_string(index), static_cast<ItemType>(stored.index()))
            ->set(stored);
    }
}

template <class T>
void setArray(Item* item, const T* array, size_t length) {
    if (!item || length > std::numeric_limits<int32_t>::max()) {
        return; // no array can be that long
    }
    std::vector<Value> elements;
    for (size_t index = 0; array && index < length; ++index) {
        elements.emplace_back(fromArgument(array[index]));
    }
    toNode(item)->setArray(elements);
}

template <auto convert>
auto getAt(const Item* item, size_t index) {
    return convert(element(item, index));
}

template <auto convert, class T>
void getArray(const Item* item, T* arrayOut, size_t length) {
    for (size_t index = 0; index < length; ++index) {
        if (const Node* node = element(item, index)) {
            arrayOut[index] = convert(node);
        }
    }
}

// A merge's question in the words of the contract.
struct Question {
    dictionary::OnUpdateItemFn onUpdateItemFn;
    void* userData;

    bool operator()(const Node* dst, const Node& src) const {
        const ItemType dstType = dst ? dst->type() : ItemType::eCount;
        return !onUpdateItemFn || onUpdateItemFn(toItem(dst), dstType, toItem(&src), src.type(),
                                                 userData) == UpdateAction::eOverwrite;
    }
};

size_t childCount(const Item* item) {
    return item ? toNode(item)->children.size() : 0;
}

Item* childByIndex(const Item* item, size_t index) {
    return index < childCount(item) ? toItem(toNode(item)->children[index].get()) : nullptr;
}

Item* parentOf(const Item* item) {
    return item ? toItem(toNode(item)->parent) : nullptr;
}

Item* createItem(Item* parent, const char* path, ItemType type) {
    if (parent || type >= ItemType::eCount) {
        return parent ? toItem(toNode(parent)->create(path ? path : "", type)) : nullptr;
    }
    g_roots.push_back(std::make_shared<Node>(path ? path : "", neutralValue(type), nullptr));
    return toItem(g_roots.back().get());
}

void destroyItem(Item* item) {
    Node* const node = toNode(item);
    if (node && node->parent) {
        node->detach();
    } else {
        std::erase_if(g_roots, [node](const auto& root) { return root.get() == node; });
    }
}

} // namespace

const IDictionary kDictionaryModel = {
    .getItem = [](const Item* base, const char* path) -> const Item* {
        return toItem(find(base, path));
    },
    .getItemMutable = [](Item* base, const char* path) { return toItem(find(base, path)); },
    .getItemChildCount = childCount,
    .getItemChildByIndex = [](const Item* item, size_t index) -> const Item* {
        return childByIndex(item, index);
    },
    .getItemChildByIndexMutable = [](Item* item,
                                     size_t index) { return childByIndex(item, index); },
    .getItemParent = [](const Item* item) -> const Item* { return parentOf(item); },
    .getItemParentMutable = [](Item* item) { return parentOf(item); },
    .getItemType = [](const Item* item) { return item ? toNode(item)->type() : ItemType::eCount; },
    .createStringBufferFromItemName =
        [](const Item* item) { return item ? newText(toNode(item)->name) : nullptr; },
    .getItemName = [](const Item* item) { return item ? toNode(item)->name.c_str() : nullptr; },
    .createItem = createItem,
    .isAccessibleAs =
        [](ItemType type, const Item* item) {
            return item && isAccessibleAs(type, toNode(item)->value);
        },
    .getAsInt64 = [](const Item* item) { return valueOf<toInt64>(toNode(item)); },
    .setInt64 = set<int64_t>,
    .getAsFloat64 = [](const Item* item) { return valueOf<toFloat64>(toNode(item)); },
    .setFloat64 = set<double>,
    .getAsBool = [](const Item* item) { return valueOf<toBool>(toNode(item)); },
    .setBool = set<bool>,
    .createStringBufferFromItemValue =
        [](const Item* item) { return newText(valueOf<toText>(toNode(item))); },
    .getStringBuffer = [](const Item* item) { return ownText(toNode(item)); },
    .setString = set<const char*>,
    .isAccessibleAsArray = [](const Item* item) { return item && toNode(item)->arrayLength() > 0; },
    .isAccessibleAsArrayOf =
        [](ItemType type, const Item* item) {
            const auto isAccessible = [type](const auto& child) {
                return isAccessibleAs(type, child->value);
            };
            return item && toNode(item)->arrayLength() > 0 &&
                   std::all_of(toNode(item)->children.begin(), toNode(item)->children.end(),
                               isAccessible);
        },
    .getArrayLength = [](const Item* item) { return item ? toNode(item)->arrayLength() : 0; },
    .getPreferredArrayType =
        [](const Item* item) {
            return item ? toNode(item)->preferredArrayType() : ItemType::eCount;
        },
    .getAsInt64At = getAt<valueOf<toInt64>>,
    .setInt64At = setAt<int64_t>,
    .getAsInt64Array = getArray<valueOf<toInt64>, int64_t>,
    .setInt64Array = setArray<int64_t>,
    .getAsIntArray = getArray<valueOf<toInt32>, int32_t>,
    .setIntArray = setArray<int32_t>,
    .getAsFloat64At = getAt<valueOf<toFloat64>>,
    .setFloat64At = setAt<double>,
    .getAsFloat64Array = getArray<valueOf<toFloat64>, double>,
    .setFloat64Array = setArray<double>,
    .getAsFloatArray = getArray<valueOf<toFloat32>, float>,
    .setFloatArray = setArray<float>,
    .getAsBoolAt = getAt<valueOf<toBool>>,
    .setBoolAt = setAt<bool>,
    .getAsBoolArray = getArray<valueOf<toBool>, bool>,
    .setBoolArray = setArray<bool>,
    .createStringBufferFromItemValueAt =
        [](const Item* item, size_t index) {
            return newText(valueOf<toText>(element(item, index)));
        },
    .getStringBufferAt = getAt<ownText>,
    .setStringAt = setAt<const char*>,
    .getStringBufferArray = getArray<ownText, const char*>,
    .setStringArray = setArray<const char*>,
    .getItemAt = [](const Item* item, size_t index) -> const Item* {
        return toItem(element(item, index));
    },
    .getItemAtMutable = [](Item* item, size_t index) { return toItem(element(item, index)); },
    .getItemArray = getArray<toItem, const Item*>,
    .update =
        [](Item* dst,
           const char* dstPath,
           const Item* src,
           const char* srcPath,
           dictionary::OnUpdateItemFn onUpdateItemFn,
           void* userData) {
            if (const Node* source = find(src, srcPath); source && dst) {
                merge(*toNode(dst), dstPath ? dstPath : "", *source,
                      Question{onUpdateItemFn, userData});
            }
        },
    .destroyItem = destroyItem,
    .destroyStringBuffer = [](const char* text) { free(const_cast<char*>(text)); },
};

void clearDictionaryModel() {
    g_roots.clear();
}

} // namespace vorn::fuzz
