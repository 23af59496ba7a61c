// Decisions, paths and values drawn from an input. One byte is one decision; when the input is used
// up, every decision is the first choice. The choices are few, so that things meet.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <string>
#include <string_view>
#include <vorn/dictionary/IDictionary.h>

namespace vorn::fuzz {

class Draw {
public:
    explicit Draw(std::string_view data) : m_data(data) {}

    size_t left() const {
        return m_data.size();
    }
    size_t pick(size_t sides) {
        if (m_data.empty()) {
            return 0;
        }
        const auto byte = static_cast<uint8_t>(m_data.front());
        m_data.remove_prefix(1);
        return byte % sides;
    }
    template <class T, size_t kCount>
    T pickFrom(const T (&choices)[kCount]) {
        return choices[pick(kCount)];
    }
    bool isOneIn(size_t sides) {
        return pick(sides) == sides - 1;
    }

    // Null now and then. Good until forget().
    const char* settingsPath() {
        return _path(2);
    }
    const char* dictionaryPath() { // which has no "/" in front, or it is wrong
        return _path(64);
    }

    template <class T>
    T value();

    // A text made by the caller; good until forget().
    const char* keep(std::string text) {
        return m_texts.emplace_back(std::move(text)).c_str();
    }
    void forget() {
        m_texts.clear();
    }

private:
    const char* _path(size_t slashes) {
        const size_t form = pick(256);
        if (form == 255) {
            return nullptr;
        }
        std::string& path = m_texts.emplace_back(form % slashes == 1 ? "/" : "");
        const size_t oddity = form / 16;
        path += oddity == 13 ? "/" : "";
        constexpr size_t kDepths[] = {1, 1, 2, 1, 2, 3, 0, 1};
        for (size_t depth = kDepths[form / 2 % 8]; depth > 0; --depth) {
            path += _name();
            path += depth > 1 ? "/" : "";
            path += depth == 2 && oddity == 14 ? "/" : "";
        }
        path += oddity == 15 ? "/" : "";
        return path.c_str();
    }

    const char* _name() {
        constexpr const char* kCommon[] = {"a", "b", "0", "1", "2", "c"};
        constexpr const char* kRare[] = {
            "x",          "3",         "01", "007",      "0x1",
            "+3",         " 3",        "-1", "3a",       "00",
            "08",         "0x",        "A",  "\xC3\xA9", "a name of more than sixteen bytes",
            "4294967297", "2147483648"};
        const size_t choice = pick(120);
        return choice < std::size(kRare) ? kRare[choice] : kCommon[choice % std::size(kCommon)];
    }

    std::string_view m_data;
    std::deque<std::string> m_texts;
};

template <>
inline bool Draw::value() {
    return pick(2) == 1;
}

template <>
inline int64_t Draw::value() {
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    constexpr int64_t kInts[] = {0,
                                 1,
                                 -1,
                                 2,
                                 7,
                                 2147483647,
                                 2147483648,
                                 -2147483649,
                                 4294967299,
                                 3000000000,
                                 (int64_t{1} << 53) + 1,
                                 kMax,
                                 -kMax - 1};
    return pickFrom(kInts);
}

template <>
inline int32_t Draw::value() {
    return static_cast<int32_t>(value<int64_t>());
}

template <>
inline double Draw::value() {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    constexpr double kFloats[] = {0.0,
                                  -0.0,
                                  1.0,
                                  2.5,
                                  -0.25,
                                  0.1,
                                  1e15,
                                  1e16,
                                  1e300,
                                  3e9,
                                  kInfinity,
                                  -kInfinity,
                                  5e-324,
                                  NAN,
                                  123456789012345680.0,
                                  9223372036854775808.0};
    return pickFrom(kFloats);
}

template <>
inline float Draw::value() {
    return saturateToFloat(value<double>());
}

template <>
inline dictionary::ItemType Draw::value() {
    return static_cast<dictionary::ItemType>(pick(6));
}

template <> // an index
inline size_t Draw::value() {
    constexpr size_t kIndices[] = {0, 1, 2, 3, 0, 1, 2, 10, 4294967297, SIZE_MAX};
    return pickFrom(kIndices);
}

template <> // a text, or null
inline const char* Draw::value() {
    constexpr const char* kTexts[] = {"",
                                      "x",
                                      "true",
                                      "FALSE",
                                      "12",
                                      "-7",
                                      "+3",
                                      " 3",
                                      "3 ",
                                      "0x1f",
                                      "1e3",
                                      "1.5",
                                      "-0",
                                      "nan",
                                      "INF",
                                      "-inf",
                                      "1e999",
                                      ".5",
                                      "5.",
                                      "1e-999",
                                      "+-1",
                                      "-",
                                      "infinity",
                                      "9223372036854775808",
                                      "-9223372036854775809",
                                      "nan(x)",
                                      "a text of 15 b.",
                                      "a text of 16 by.",
                                      "a text that is longer than any buffer inside an item",
                                      nullptr};
    const size_t choice = pick(40);
    if (choice < std::size(kTexts)) {
        return kTexts[choice];
    }
    std::string& text = m_texts.emplace_back();
    for (size_t length = pick(24); length > 0; --length) {
        text += static_cast<char>(1 + pick(255));
    }
    return text.c_str();
}

} // namespace vorn::fuzz
