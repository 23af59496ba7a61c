// Places in a text.
#include "TextPlace.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cwchar>

namespace vorn::tool {

namespace {

constexpr size_t kExcerptReach = 60; // bytes shown on either side of the place

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0u) == 0x80u;
}

size_t characterCount(std::string_view text) {
    return text.size() -
           static_cast<size_t>(std::count_if(text.begin(), text.end(), isContinuation));
}

size_t lineStart(std::string_view text, size_t offset) {
    const size_t newline = offset == 0 ? std::string_view::npos : text.rfind('\n', offset - 1);
    return newline == std::string_view::npos ? 0 : newline + 1;
}

// Number of bytes of the character that text starts with; 0 when it is broken.
size_t utf8Length(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) {
        return 1;
    }
    const size_t length = first >= 0xF0 ? 4 : (first >= 0xE0 ? 3 : 2);
    if (first < 0xC2 || first > 0xF4 || text.size() < length ||
        !std::all_of(text.begin() + 1, text.begin() + static_cast<ptrdiff_t>(length),
                     isContinuation)) {
        return 0;
    }
    // Not the shortest form, a surrogate, or past the last code point.
    const auto second = static_cast<unsigned char>(text[1]);
    const bool isBroken = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                          (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
    return isBroken ? 0 : length;
}

// The code point of the character that text starts with; broken text is taken byte by byte.
char32_t firstCharacter(std::string_view text, size_t length) {
    const auto first = static_cast<unsigned char>(text[0]);
    char32_t character = length < 2 ? first : first & (0xFFu >> (length + 1));
    for (const char byte : text.substr(1, std::max<size_t>(length, 1) - 1)) {
        character = character << 6 | (static_cast<unsigned char>(byte) & 0x3Fu);
    }
    return character;
}

// Controls, line ends, marks that turn the direction of writing, and the byte order mark.
bool isUnseen(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character < 0xA0) ||
           (character >= 0x2028 && character <= 0x202E) ||
           (character >= 0x2066 && character <= 0x2069) || character == 0xFEFF;
}

// Calls onCharacter(code point, its text) from the front until that answers false.
template <class OnCharacter>
void forEachCharacter(std::string_view text, OnCharacter&& onCharacter) {
    while (!text.empty()) {
        const size_t length = utf8Length(text);
        const std::string_view piece = text.substr(0, std::max<size_t>(length, 1));
        if (!onCharacter(firstCharacter(piece, length), piece)) {
            return;
        }
        text.remove_prefix(piece.size());
    }
}

size_t columnsOf(char32_t character) {
    const int columns = character < 0x80 ? 1 : wcwidth(static_cast<wchar_t>(character));
    return columns < 0 ? 1 : static_cast<size_t>(columns);
}

} // namespace

size_t columnCount(std::string_view text) {
    size_t columns = 0;
    forEachCharacter(text, [&columns](char32_t character, std::string_view) {
        columns += columnsOf(character);
        return true;
    });
    return columns;
}

std::string_view firstColumns(std::string_view text, size_t columns) {
    size_t used = 0;
    size_t end = 0;
    forEachCharacter(text, [&](char32_t character, std::string_view piece) {
        used += columnsOf(character);
        end += used <= columns ? piece.size() : 0;
        return used <= columns;
    });
    return text.substr(0, end);
}

std::string visibleText(const std::string& text) {
    std::string visible;
    forEachCharacter(text, [&visible](char32_t character, std::string_view piece) {
        if (isUnseen(character)) {
            std::array<char, sizeof("\\uFFFF")> escape;
            std::snprintf(escape.data(), escape.size(), "\\u%04x",
                          static_cast<unsigned>(character));
            visible += escape.data();
        } else {
            visible += piece;
        }
        return true;
    });
    return visible;
}

std::string placeText(const std::string& source, std::string_view text, size_t offset) {
    const size_t start = lineStart(text, offset);
    const auto line =
        1 + std::count(text.begin(), text.begin() + static_cast<ptrdiff_t>(start), '\n');
    const size_t column = 1 + characterCount(text.substr(start, offset - start));
    return source + ":" + std::to_string(line) + ":" + std::to_string(column);
}

std::string excerptAt(std::string_view text, size_t offset) {
    size_t begin = lineStart(text, offset);
    size_t end = std::min(text.find('\n', offset), text.size());
    if (offset - begin > kExcerptReach) {
        begin = offset - kExcerptReach;
        while (begin < offset && isContinuation(text[begin])) {
            ++begin;
        }
    }
    if (end - offset > kExcerptReach) {
        end = offset + kExcerptReach;
        while (end > offset && isContinuation(text[end])) {
            --end;
        }
    }
    std::string line;
    std::string caret;
    for (size_t at = begin; at < end;) {
        const std::string_view rest = text.substr(at, end - at);
        const size_t length = std::max<size_t>(utf8Length(rest), 1);
        const bool isTab = rest[0] == '\t';
        const bool isControl = static_cast<unsigned char>(rest[0]) < 0x20 || rest[0] == 0x7F;
        const bool isShown = isTab || (!isControl && utf8Length(rest) > 0);
        line += isShown ? rest.substr(0, length) : "?";
        if (at < offset) {
            caret += isTab ? '\t' : ' ';
        }
        at += length;
    }
    return "  " + line + "\n  " + caret + "^\n";
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const size_t length = utf8Length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

} // namespace vorn::tool
