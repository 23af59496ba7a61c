// Puts the settings into the page.
#include "TreePage.h"

#include "TreePageText.h"

#include <nlohmann/json.hpp>
#include <string_view>

namespace vorn::tool {

using nlohmann::ordered_json;

namespace {

constexpr std::string_view kMark = "{{settings}}";

// [name, type, text], or [name, type, [node...]]. Numbers are text, because a browser's numbers
// are too coarse for them.
ordered_json
nodeJson(const IDictionary& idict, const char* name, const Item* item, ChildOrder order) {
    ordered_json content;
    if (isDictionary(idict, item)) {
        content = ordered_json::array();
        for (const Item* child : childrenOf(idict, item, order)) {
            content.push_back(nodeJson(idict, idict.getItemName(child), child, order));
        }
    } else {
        const char* text = idict.getStringBuffer(item);
        content = text ? text : jsonText(idict, item);
    }
    return ordered_json::array({name, typeName(idict, item), std::move(content)});
}

// JSON that may stand in a page: nothing in it can end the block it stands in.
std::string embeddable(const ordered_json& json) {
    std::string text;
    for (const char byte : json.dump()) {
        if (byte == '<') {
            text += "\\u003c";
        } else {
            text += byte;
        }
    }
    return text;
}

} // namespace

std::string treePage(const IDictionary& idict,
                     const std::string& title,
                     const std::string& path,
                     const Item* root,
                     ChildOrder order) {
    const ordered_json settings = {
        {"title", title}, {"path", path}, {"tree", nodeJson(idict, "", root, order)}};
    std::string page = kTreePageText;
    return page.replace(page.find(kMark), kMark.size(), embeddable(settings));
}

} // namespace vorn::tool
