// A tree of settings in the hands of the tool, and what to do with any tree: make one from JSON,
// turn one into JSON, name its types, compare two.
#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>
#include <vorn/dictionary/IDictionary.h>

namespace vorn::tool {

using dictionary::IDictionary;
using dictionary::Item;
using dictionary::ItemType;

struct TreeDeleter {
    const IDictionary* idict = nullptr;
    void operator()(Item* root) const {
        idict->destroyItem(root);
    }
};

// A free-standing tree; its root is a value where a lone value was read.
using OwnedTree = std::unique_ptr<Item, TreeDeleter>;

// What JSON had and a tree cannot hold: null, repeated names, names that are empty or hold "/",
// zero characters, integers past 64 bits.
struct LeftOut {
    size_t count = 0;
    std::string first; // place and kind of the first one
};

// Makes a tree of JSON text. What a tree cannot hold is left out and counted, and of several
// members of one name the last is taken; with a null leftOut, ToolError is thrown instead. Throws
// as scanJson does. Null when the text is one value that cannot be held.
OwnedTree loadTree(const IDictionary& idict,
                   std::string_view text,
                   const std::string& source,
                   LeftOut* leftOut);

// The tree as JSON; an array where the children are "0" to "n-1".
nlohmann::ordered_json toJson(const IDictionary& idict, const Item* item);

// toJson in one line.
std::string jsonText(const IDictionary& idict, const Item* item);

// Whether the item has children that are the elements of an array.
bool isArray(const IDictionary& idict, const Item* item);

// "bool", "int", "float", "string", "dictionary" or "array".
std::string typeName(const IDictionary& idict, const Item* item);

bool isDictionary(const IDictionary& idict, const Item* item);

// The number of dictionaries one inside the other, the item itself included.
size_t depthOf(const IDictionary& idict, const Item* item);

enum class ChildOrder { eAsStored, eByName };

std::vector<const Item*>
childrenOf(const IDictionary& idict, const Item* item, ChildOrder order = ChildOrder::eAsStored);

// Whether two values have the same type and the same value. REQUIRES: both are values.
bool areSameValue(const IDictionary& idict, const Item* left, const Item* right);

// Told of a value, or a dictionary without children, that one side lacks (null) or has otherwise.
using OnDifferenceFn =
    std::function<void(const std::string& path, const Item* before, const Item* after)>;

// Compares two trees, in the order of the first and then of the second; either may be null.
// path is the one they both stand at.
void forEachDifference(const IDictionary& idict,
                       const std::string& path,
                       const Item* before,
                       const Item* after,
                       const OnDifferenceFn& onDifference);

} // namespace vorn::tool
