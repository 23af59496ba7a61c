// Values as text.
#include "Value.h"

#include "TextPlace.h"
#include "ToolError.h"

namespace vorn::tool {

using nlohmann::ordered_json;

namespace {

constexpr const char* kSource = "VALUE";
constexpr int kIndent = 2;

OwnedTree parseJson(const IDictionary& idict, const std::string& text) {
    return loadTree(idict, text, kSource, nullptr);
}

OwnedTree makeString(const IDictionary& idict, const std::string& text) {
    return parseJson(idict, ordered_json(text).dump());
}

OwnedTree parseUntyped(const IDictionary& idict, const std::string& text) {
    const bool isMeantAsJson = text.find_first_of("{[\"") == 0;
    try {
        return parseJson(idict, text);
    } catch (const JsonSyntaxError&) {
        if (isMeantAsJson) {
            throw;
        }
        return makeString(idict, text);
    }
}

OwnedTree parseTyped(const IDictionary& idict, const std::string& text, const std::string& type) {
    OwnedTree tree = parseUntyped(idict, text);
    const std::string found = typeName(idict, tree.get());
    if (type == "float" && found == "int") {
        idict.setFloat64(tree.get(), idict.getAsFloat64(tree.get()));
    } else if (found != type) {
        throw ToolError(ExitCode::eBadInput, "value of the wrong type", text,
                        "expected " + type + ", found " + found);
    }
    return tree;
}

} // namespace

Value parseValue(const IDictionary& idict, const std::string& text, const std::string& type) {
    if (!isUtf8(text)) {
        throw ToolError(ExitCode::eBadInput, "broken UTF-8", kSource, "expected text in UTF-8");
    }
    OwnedTree tree = type.empty()       ? parseUntyped(idict, text)
                     : type == "string" ? makeString(idict, text)
                     : type == "json"   ? parseJson(idict, text)
                                        : parseTyped(idict, text, type);
    // An empty array is a dictionary to the tree, and stays an array in a file.
    ordered_json json =
        isDictionary(idict, tree.get()) ? ordered_json::parse(text) : toJson(idict, tree.get());
    return {std::move(tree), std::move(json)};
}

std::string plainText(const IDictionary& idict, const Item* item) {
    const char* text = idict.getStringBuffer(item);
    return text ? text : prettyText(idict, item);
}

std::string prettyText(const IDictionary& idict, const Item* item) {
    return toJson(idict, item).dump(kIndent);
}

} // namespace vorn::tool
