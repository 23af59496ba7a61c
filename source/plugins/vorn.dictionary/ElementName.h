// Names of array elements: the index in decimal, without sign or leading zeros. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vorn::dictionary {

// A name that counts: starts as that of one index and steps to the next.
class ElementName {
public:
    explicit ElementName(size_t index = 0) {
        do {
            m_digits[--m_begin] = static_cast<char>('0' + index % 10);
            index /= 10;
        } while (index > 0);
    }

    void next() {
        size_t place = kCapacity;
        while (place > m_begin && m_digits[place - 1] == '9') {
            m_digits[--place] = '0';
        }
        if (place == m_begin) {
            m_digits[--m_begin] = '1';
        } else {
            ++m_digits[place - 1];
        }
    }

    std::string_view view() const {
        return {m_digits + m_begin, kCapacity - m_begin};
    }
    // The same, zero-terminated.
    const char* text() const {
        return m_digits + m_begin;
    }

    // The last 15 bytes, zeros in front of the digits, and the terminating zero.
    const char* paddedText() const {
        return m_digits + kCapacity - 15;
    }

private:
    static constexpr size_t kCapacity = 20; // digits of the largest index

    char m_digits[kCapacity + 1] = {};
    size_t m_begin = kCapacity;
};

constexpr size_t kNoElement = SIZE_MAX;

// The index that a name stands for, or kNoElement.
inline size_t elementIndexOf(std::string_view name) {
    constexpr size_t kMaxDigits = 10; // an array has fewer than 2^32 elements
    if (name.empty() || name.size() > kMaxDigits || (name[0] == '0' && name.size() > 1)) {
        return kNoElement;
    }
    size_t index = 0;
    for (const char digit : name) {
        if (digit < '0' || digit > '9') {
            return kNoElement;
        }
        index = index * 10 + static_cast<size_t>(digit - '0');
    }
    return index;
}

} // namespace vorn::dictionary
