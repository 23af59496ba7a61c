// What a tree holds, as one line of text, by the table of today or that of a foreign host.
#pragma once

#include "../contract/0.4/vorn_0_4.h"

#include <string>

namespace vorn::dictionary {

// The value as text; "(none)" where there is none.
template <class Dictionary, class Item>
std::string textOf(const Dictionary& d, const Item* item) {
    const char* buffer = d.createStringBufferFromItemValue(item);
    const std::string text = buffer ? buffer : "(none)";
    d.destroyStringBuffer(buffer);
    return text;
}

// The tree below item, as in "{a:1 b:'x' c:{0:2.5 1:true}}".
template <class Dictionary, class Item>
std::string outlineOf(const Dictionary& d, const Item* item) {
    const auto type = static_cast<V04ItemType>(d.getItemType(item));
    if (type != kV04Dictionary) {
        const std::string quote = type == kV04String ? "'" : "";
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
