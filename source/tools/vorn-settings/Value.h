// Values as people type them and read them.
#pragma once

#include "Tree.h"

#include <nlohmann/json.hpp>
#include <string>

namespace vorn::tool {

// A value that was typed: as a tree for the store, as JSON for a file.
struct Value {
    OwnedTree tree;
    nlohmann::ordered_json json;
};

// Without a type, text that is JSON is that value, and other text is a string unless it begins
// like a JSON container or string. "bool", "int", "float", "string" and "json" force the type.
// Throws ToolError for what is no value of that type or cannot be a setting.
Value parseValue(const IDictionary& idict, const std::string& text, const std::string& type);

// The item as text for people and scripts: a string bare, anything else as JSON, a dictionary or
// array on several lines.
std::string plainText(const IDictionary& idict, const Item* item);

// toJson on several lines.
std::string prettyText(const IDictionary& idict, const Item* item);

} // namespace vorn::tool
