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

// How many columns of a terminal the text takes, and as much of its front as fits into some.
size_t columnCount(std::string_view text);
std::string_view firstColumns(std::string_view text, size_t columns);

// The text with escapes for what would not be seen and for what would do something to a terminal;
// a JSON text stays one.
std::string visibleText(const std::string& text);

} // namespace vorn::tool
