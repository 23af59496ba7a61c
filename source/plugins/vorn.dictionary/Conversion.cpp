#include "Conversion.h"

#include "ElementName.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <system_error>

namespace vorn::dictionary {

namespace {

double floatOf(uint64_t payload) {
    double value;
    std::memcpy(&value, &payload, sizeof(value));
    return value;
}

// The whole of text as a number of that kind, or an error.
template <class Number>
std::errc parseWhole(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return end != text.data() + text.size() ? std::errc::invalid_argument : error;
}

bool equalsIgnoringCase(std::string_view text, std::string_view lowerCase) {
    if (text.size() != lowerCase.size()) {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        if ((text[i] | 0x20) != lowerCase[i]) {
            return false;
        }
    }
    return true;
}

// Of a number that a float cannot hold: whether it is next to 0, rather than too large.
bool isTooSmall(std::string_view text) {
    const std::string_view digits = text.substr(0, text.find_first_of("eE"));
    std::string_view exponentText = text.substr(std::min(digits.size() + 1, text.size()));
    exponentText.remove_prefix(exponentText.substr(0, 1) == "+" ? 1 : 0);
    int32_t exponent = 0;
    if (parseWhole(exponentText, exponent) == std::errc::result_out_of_range) {
        return exponentText[0] == '-';
    }
    // Where the first digit that counts stands before or behind the point.
    const size_t point = std::min(digits.find('.'), digits.size());
    const size_t first = digits.find_first_of("123456789");
    return static_cast<int64_t>(point) - static_cast<int64_t>(first) + exponent < 0;
}

// Whether text is what formatScalar writes for infinities and NaN.
bool isNonFiniteWord(std::string_view text) {
    text.remove_prefix(text[0] == '-' ? 1 : 0);
    return equalsIgnoringCase(text, "inf") || equalsIgnoringCase(text, "nan");
}

} // namespace

int64_t Scalar::asInt64() const {
    if (type != ItemType::eFloat) {
        return isValid() ? static_cast<int64_t>(payload) : 0;
    }
    constexpr double kBound = 9223372036854775808.0; // 2^63
    const double value = floatOf(payload);
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= kBound) {
        return std::numeric_limits<int64_t>::max();
    }
    return value < -kBound ? std::numeric_limits<int64_t>::min() : static_cast<int64_t>(value);
}

double Scalar::asFloat64() const {
    if (type == ItemType::eFloat) {
        return floatOf(payload);
    }
    return isValid() ? static_cast<double>(static_cast<int64_t>(payload)) : 0.0;
}

bool Scalar::asBool() const {
    if (type == ItemType::eFloat) {
        return floatOf(payload) != 0.0;
    }
    return isValid() && payload != 0;
}

Scalar parseScalar(std::string_view text) {
    constexpr Scalar kNone = {ItemType::eCount, 0};
    if (equalsIgnoringCase(text, "true")) {
        return {ItemType::eBool, 1};
    }
    if (equalsIgnoringCase(text, "false")) {
        return {ItemType::eBool, 0};
    }
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') {
        text.remove_prefix(1);
    }
    int64_t integer = 0;
    if (parseWhole(text, integer) == std::errc()) {
        return {ItemType::eInt, payloadOf(integer)};
    }
    double number = 0;
    const std::errc error = parseWhole(text, number);
    if (error == std::errc::result_out_of_range) {
        number = isTooSmall(text) ? 0.0 : std::numeric_limits<double>::infinity();
        number = text[0] == '-' ? -number : number;
    } else if (error != std::errc() || (!std::isfinite(number) && !isNonFiniteWord(text))) {
        return kNone;
    }
    return {ItemType::eFloat, payloadOf(number)};
}

Scalar readScalar(const Tree& tree, const Item* item) {
    Value value = item->read();
    if (value.type() == ItemType::eString) {
        const StringReader reader(tree.strings());
        value = item->read(); // again, now that a text stays readable
        if (value.type() == ItemType::eString) {
            return parseScalar(StringBlock::textOf(value.payload));
        }
    }
    if (value.type() < ItemType::eString) {
        return {value.type(), value.payload};
    }
    return {ItemType::eCount, 0};
}

bool isConvertible(const Tree& tree, ItemType type, const Item* item) {
    const ItemType own = item->type();
    switch (type) {
    case ItemType::eBool:
    case ItemType::eInt:
    case ItemType::eFloat:
        return readScalar(tree, item).isValid();
    case ItemType::eString:
        return own <= ItemType::eString;
    case ItemType::eDictionary:
        return own == ItemType::eDictionary;
    case ItemType::eCount:
        break;
    }
    return false;
}

size_t formatScalar(Scalar scalar, char (&buffer)[kScalarTextCapacity]) {
    char* end = buffer;
    if (scalar.type == ItemType::eBool) {
        const std::string_view word = scalar.payload ? "true" : "false";
        end += word.copy(buffer, word.size());
    } else if (scalar.type == ItemType::eInt) {
        end = std::to_chars(buffer, buffer + sizeof(buffer), scalar.asInt64()).ptr;
    } else {
        end = std::to_chars(buffer, buffer + sizeof(buffer), scalar.asFloat64()).ptr;
        // Digits alone would read as an integer.
        const std::string_view text(buffer, static_cast<size_t>(end - buffer));
        if (text.find_first_not_of("-0123456789") == std::string_view::npos) {
            *end++ = '.';
            *end++ = '0';
        }
    }
    return static_cast<size_t>(end - buffer);
}

char* createCopy(std::string_view text) {
    auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy) {
        std::memcpy(copy, text.data(), text.size());
        copy[text.size()] = '\0';
    }
    return copy;
}

char* createText(const Tree& tree, const Item* item) {
    const StringReader reader(tree.strings());
    const Value value = item->read();
    if (value.type() == ItemType::eString) {
        return createCopy(StringBlock::textOf(value.payload));
    }
    if (value.type() > ItemType::eString) {
        return nullptr;
    }
    char buffer[kScalarTextCapacity];
    const size_t length = formatScalar({value.type(), value.payload}, buffer);
    return createCopy({buffer, length});
}

ItemType preferredElementType(const Tree& tree, const Item* item) {
    const size_t length = tree.arrayLength(item);
    ItemType preferred = ItemType::eBool;
    bool hasDictionaries = false;
    bool hasValues = false;
    bool areIntegersExact = true; // as floats
    for (size_t i = 0; i < length; ++i) {
        const Item* element = tree.child(item, i);
        if (!element) {
            return ItemType::eCount; // another thread has made the array shorter
        }
        const Value value = element->read();
        hasDictionaries |= value.type() == ItemType::eDictionary;
        hasValues |= value.type() != ItemType::eDictionary;
        if (value.type() == ItemType::eInt) {
            const Scalar integer = {value.type(), value.payload};
            const Scalar number = {ItemType::eFloat, payloadOf(integer.asFloat64())};
            // 2^63 comes back as the largest integer, which is no float itself.
            areIntegersExact &= number.asInt64() == integer.asInt64() &&
                                integer.asInt64() != std::numeric_limits<int64_t>::max();
        }
        preferred = value.type() > preferred ? value.type() : preferred;
    }
    if (length == 0 || (hasDictionaries && hasValues)) {
        return ItemType::eCount;
    }
    return preferred == ItemType::eFloat && !areIntegersExact ? ItemType::eString : preferred;
}

} // namespace vorn::dictionary
