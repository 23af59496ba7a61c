// Indices of array elements and the names they go by: element 7 of an array is its child "7".
// Pure functions; nothing here touches the store.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace vorn::settings {

// Room for the text of an index.
constexpr size_t kMaxNumericStringLen = 64;

// The decimal text of an index: no sign, no leading zeros.
class IndexText {
public:
    explicit IndexText(size_t index)
        : m_length(static_cast<size_t>(
              std::to_chars(m_text, m_text + kMaxNumericStringLen - 1, index).ptr - m_text)) {
        m_text[m_length] = '\0';
    }
    const char* c_str() const {
        return m_text;
    }
    size_t size() const {
        return m_length;
    }

private:
    char m_text[kMaxNumericStringLen];
    size_t m_length;
};

// Reads what nearly every element is named: up to nine digits without a leading zero.
inline std::optional<size_t> parsePlainIndex(const char* string) {
    constexpr size_t kMaxDigits = 9; // any number of that many digits is an index
    size_t value = 0;
    size_t length = 0;
    for (; length < kMaxDigits; ++length) {
        const unsigned digit = static_cast<unsigned char>(string[length]) - unsigned{'0'};
        if (digit > 9) {
            break;
        }
        value = value * 10 + digit;
    }
    const bool hasLeadingZero = string[0] == '0' && length > 1;
    const bool isPlain = string[length] == '\0' && length > 0 && !hasLeadingZero;
    return isPlain ? std::optional<size_t>(value) : std::nullopt;
}

// Reads whatever strtol reads in base 0 to the last character; of the number the low 32 bits
// count, as a signed value. Binary numbers, which only newer C libraries read, are no index.
inline std::optional<size_t> parseLenientIndex(const char* string, size_t stringLen) {
    char* endPtr = nullptr;
    const auto idx = static_cast<int32_t>(std::strtol(string, &endPtr, 0));
    if (endPtr != string + stringLen || idx < 0) {
        return std::nullopt;
    }
    const std::string_view digits(string, stringLen);
    const bool isBinary =
        digits.find_first_of("bB") != digits.npos && digits.find_first_of("xX") == digits.npos;
    return isBinary ? std::nullopt : std::optional<size_t>(static_cast<size_t>(idx));
}

// The index that a name denotes, or 0 with *isValid (which may be null) false: "7", "007",
// "0x1f", "+3", " 3" and "" are names of indices; "3 ", "3a", "-1", "08", "1.0" and "0x" are not.
inline size_t getValidIndex(const char* string, bool* isValid) {
    std::optional<size_t> index = parsePlainIndex(string);
    if (!index) [[unlikely]] {
        index = parseLenientIndex(string, std::strlen(string));
    }
    if (isValid) {
        *isValid = index.has_value();
    }
    return index.value_or(0);
}

// Collects indices and tells whether they are 0, 1, ... n-1, each at least once. Memory is needed
// only for those that come ahead of a smaller one.
class IndexCoverage {
public:
    void add(size_t index) {
        if (index == m_covered) {
            ++m_covered;
        } else if (index > m_covered) {
            m_ahead.push_back(index);
        }
    }
    // n, or 0 when an index is missing. Called once, after the last index.
    size_t getLength() {
        std::sort(m_ahead.begin(), m_ahead.end());
        for (const size_t index : m_ahead) {
            if (index > m_covered) {
                return 0;
            }
            m_covered += index == m_covered ? 1 : 0;
        }
        return m_covered;
    }

private:
    size_t m_covered = 0;        // every index below has been seen
    std::vector<size_t> m_ahead; // seen before all smaller ones were, possibly twice
};

} // namespace vorn::settings
