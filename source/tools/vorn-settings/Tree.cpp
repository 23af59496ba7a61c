// Trees as JSON, their types and their differences.
#include "Tree.h"

#include "SettingsPath.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace vorn::tool {

using nlohmann::ordered_json;

bool isDictionary(const IDictionary& idict, const Item* item) {
    return idict.getItemType(item) == ItemType::eDictionary;
}

bool isArray(const IDictionary& idict, const Item* item) {
    return idict.getItemChildCount(item) > 0 && idict.isAccessibleAsArray(item);
}

size_t depthOf(const IDictionary& idict, const Item* item) {
    size_t deepest = 0;
    for (const Item* child : childrenOf(idict, item)) {
        deepest = std::max(deepest, depthOf(idict, child));
    }
    return deepest + (isDictionary(idict, item) ? 1 : 0);
}

std::vector<const Item*> childrenOf(const IDictionary& idict, const Item* item, ChildOrder order) {
    std::vector<const Item*> children(idict.getItemChildCount(item));
    for (size_t index = 0; index < children.size(); ++index) {
        children[index] = idict.getItemChildByIndex(item, index);
    }
    if (order == ChildOrder::eByName) {
        std::sort(children.begin(), children.end(), [&idict](const Item* left, const Item* right) {
            return std::string_view(idict.getItemName(left)) < idict.getItemName(right);
        });
    }
    return children;
}

ordered_json toJson(const IDictionary& idict, const Item* item) {
    switch (idict.getItemType(item)) {
    case ItemType::eBool:
        return idict.getAsBool(item);
    case ItemType::eInt:
        return idict.getAsInt64(item);
    case ItemType::eFloat:
        return idict.getAsFloat64(item);
    case ItemType::eString:
        return idict.getStringBuffer(item);
    case ItemType::eDictionary:
    case ItemType::eCount:
        break;
    }
    const std::vector<const Item*> children = childrenOf(idict, item);
    if (isArray(idict, item)) {
        ordered_json elements = ordered_json::array();
        for (size_t index = 0; index < children.size(); ++index) {
            elements.push_back(toJson(idict, idict.getItemAt(item, index)));
        }
        return elements;
    }
    ordered_json object = ordered_json::object();
    // Names are unique in a tree: append without the search for an equal one.
    auto& members = object.get_ref<ordered_json::object_t&>();
    members.reserve(children.size());
    for (const Item* child : children) {
        members.emplace_back(idict.getItemName(child), toJson(idict, child));
    }
    return object;
}

std::string jsonText(const IDictionary& idict, const Item* item) {
    return toJson(idict, item).dump();
}

std::string typeName(const IDictionary& idict, const Item* item) {
    switch (idict.getItemType(item)) {
    case ItemType::eBool:
        return "bool";
    case ItemType::eInt:
        return "int";
    case ItemType::eFloat:
        return "float";
    case ItemType::eString:
        return "string";
    case ItemType::eDictionary:
    case ItemType::eCount:
        break;
    }
    return isArray(idict, item) ? "array" : "dictionary";
}

bool areSameValue(const IDictionary& idict, const Item* left, const Item* right) {
    return idict.getItemType(left) == idict.getItemType(right) &&
           jsonText(idict, left) == jsonText(idict, right);
}

void forEachDifference(const IDictionary& idict,
                       const std::string& path,
                       const Item* before,
                       const Item* after,
                       const OnDifferenceFn& onDifference) {
    const bool wasDictionary = isDictionary(idict, before);
    const bool isNowDictionary = isDictionary(idict, after);
    const std::vector<const Item*> childrenBefore = childrenOf(idict, before);
    const std::vector<const Item*> childrenAfter = childrenOf(idict, after);
    for (const Item* child : childrenBefore) {
        const char* name = idict.getItemName(child);
        forEachDifference(idict, childPathText(path, name), child,
                          isNowDictionary ? idict.getItem(after, name) : nullptr, onDifference);
    }
    // What has children is told of by them.
    const Item* leafBefore = childrenBefore.empty() ? before : nullptr;
    const Item* leafAfter = childrenAfter.empty() ? after : nullptr;
    const bool areBothDictionaries = wasDictionary && isNowDictionary;
    const bool isSame =
        before && after && !wasDictionary && !isNowDictionary && areSameValue(idict, before, after);
    if ((leafBefore || leafAfter) && !areBothDictionaries && !isSame) {
        onDifference(path, leafBefore, leafAfter);
    }
    for (const Item* child : childrenAfter) {
        const char* name = idict.getItemName(child);
        if (!wasDictionary || !idict.getItem(before, name)) {
            forEachDifference(idict, childPathText(path, name), nullptr, child, onDifference);
        }
    }
}

} // namespace vorn::tool
