// Reading values as other types, and as text.
//
// Bool, integer and float convert among each other; a string converts when its whole text is
// "true", "false" (in any case) or a number; every value has a text form; a dictionary converts to
// nothing. Pure, but for reading the item.
#pragma once

#include "Tree.h"

#include <string_view>

namespace vorn::dictionary {

// A bool, integer or float; eCount stands for "no number".
struct Scalar {
    ItemType type;
    uint64_t payload;

    bool isValid() const {
        return type != ItemType::eCount;
    }
    int64_t asInt64() const;
    double asFloat64() const;
    bool asBool() const;
};

inline uint64_t payloadOf(bool value) {
    return value ? 1 : 0;
}
inline uint64_t payloadOf(int64_t value) {
    return static_cast<uint64_t>(value);
}
inline uint64_t payloadOf(double value) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

// The number that the whole text is, if it is one.
Scalar parseScalar(std::string_view text);

// The item's value as a number, if it has one.
Scalar readScalar(const Tree& tree, const Item* item);

// Whether the value can be read as the type: where not both are numbers, and in any case.
bool isConvertible(const Tree& tree, ItemType type, const Item* item);
inline bool isAccessible(const Tree& tree, ItemType type, const Item* item) {
    const bool areNumbers = item->type() < ItemType::eString && type < ItemType::eString;
    return areNumbers || isConvertible(tree, type, item);
}

// Writes the text form into buffer and returns its length.
constexpr size_t kScalarTextCapacity = 32;
size_t formatScalar(Scalar scalar, char (&buffer)[kScalarTextCapacity]);

// A new zero-terminated copy, to be freed; null when memory is exhausted.
char* createCopy(std::string_view text);

// The same of the value's text form; null also for a dictionary.
char* createText(const Tree& tree, const Item* item);

// The narrowest type as which every element of an array can be read without loss; eCount when the
// item is no array, is empty, or has elements with no such type.
ItemType preferredElementType(const Tree& tree, const Item* item);

} // namespace vorn::dictionary
