// What a tree holds, as one line of text.
#pragma once

#include <vorn/dictionary/IDictionary.h>

#include <string>

namespace vorn::dictionary {

// The value as text; "(none)" where there is none.
inline std::string textOf(const IDictionary& d, const Item* item) {
    const char* buffer = d.createStringBufferFromItemValue(item);
    const std::string text = buffer ? buffer : "(none)";
    d.destroyStringBuffer(buffer);
    return text;
}

// The tree below item, as in "{a:1 b:'x' c:{0:2.5 1:true}}".
inline std::string outlineOf(const IDictionary& d, const Item* item) {
    if (d.getItemType(item) != ItemType::eDictionary) {
        const std::string quote = d.getItemType(item) == ItemType::eString ? "'" : "";
        return quote + textOf(d, item) + quote;
    }
    std::string text;
    for (size_t i = 0; i < d.getItemChildCount(item); ++i) {
        const Item* child = d.getItemChildByIndex(item, i);
        text += (i ? " " : "") + std::string(d.getItemName(child)) + ":" + outlineOf(d, child);
    }
    return "{" + text + "}";
}

} // namespace vorn::dictionary
