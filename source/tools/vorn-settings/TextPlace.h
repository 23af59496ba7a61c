// Places in a text, as people count them, and the look of the text there.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorn::tool {

// "source:line:column" of a byte offset; both count from 1, columns count characters.
std::string placeText(const std::string& source, std::string_view text, size_t offset);

// Two lines: the text around the offset and a caret under it.
std::string excerptAt(std::string_view text, size_t offset);

bool isUtf8(std::string_view text);

} // namespace vorn::tool
