// Utilities over the dictionary contract.
#pragma once

#include "IDictionary.h"

#include <vector>

namespace vorn::dictionary {

// Where a walk begins.
enum class WalkerMode : uint32_t {
    eIncludeRoot = 0, // report the start item and everything below it
    eSkipRoot = 1,    // report only what is below it
};

// Reports a subtree item by item: each item before what is below it, children in their order.
// onItemFn(item, elementData, userData) returns the ElementData that is handed to that item's
// children; the start item, or with eSkipRoot its children, get rootElementData. The walk keeps
// its own stack, so the depth of the tree does not bound it. The callback must not add or remove
// items of the subtree: an item's children are counted before its callback and fetched after.
template <class ElementData, class OnItemFnType>
void walkDictionary(const IDictionary* idict,
                    WalkerMode walkerMode,
                    const Item* root,
                    ElementData rootElementData,
                    OnItemFnType onItemFn,
                    void* userData) {
    struct ValueToParse {
        const Item* srcItem;
        ElementData elementData;
    };
    constexpr size_t kReservedValues = 100;
    std::vector<ValueToParse> valuesToParse;
    valuesToParse.reserve(kReservedValues);

    const auto pushChildren = [&](const Item* item, size_t numChildren, ElementData elementData) {
        for (size_t chIdx = numChildren; chIdx > 0; --chIdx) {
            if (const Item* child = idict->getItemChildByIndex(item, chIdx - 1)) {
                valuesToParse.push_back({child, elementData});
            }
        }
    };

    if (walkerMode == WalkerMode::eIncludeRoot) {
        valuesToParse.push_back({root, rootElementData});
    } else {
        pushChildren(root, idict->getItemChildCount(root), rootElementData);
    }
    while (!valuesToParse.empty()) {
        const ValueToParse current = valuesToParse.back();
        valuesToParse.pop_back();
        if (idict->getItemType(current.srcItem) == ItemType::eDictionary) {
            const size_t numChildren = idict->getItemChildCount(current.srcItem);
            ElementData childData = onItemFn(current.srcItem, current.elementData, userData);
            pushChildren(current.srcItem, numChildren, childData);
        } else {
            onItemFn(current.srcItem, current.elementData, userData);
        }
    }
}

} // namespace vorn::dictionary
