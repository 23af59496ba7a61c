// The dictionary service over plain trees: the table that the real one is compared with. Items are
// nodes; what a node is told to hold, it holds.
#pragma once

#include "Tree.h"

namespace vorn::fuzz {

extern const IDictionary kDictionaryModel;

inline Node* toNode(const Item* item) {
    return reinterpret_cast<Node*>(const_cast<Item*>(item));
}
inline Item* toItem(const Node* node) {
    return reinterpret_cast<Item*>(const_cast<Node*>(node));
}

// Destroys every free-standing tree, as the shut-down of the service does.
void clearDictionaryModel();

} // namespace vorn::fuzz
