// What one side of a comparison was asked and answered, line by line. The model's side comes first;
// the lines of the other side are compared with its as they come.
#pragma once

#include "Target.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>
#include <type_traits>
#include <vorn/dictionary/IDictionary.h>

namespace vorn::fuzz {

class Transcript {
public:
    explicit Transcript(const Transcript* expected = nullptr) : m_expected(expected) {}

    // A part of a line, and the end of one.
    template <class Part>
    void add(const Part& part) {
        _append(part);
    }
    void endLine() {
        m_text += '\n';
        const std::string_view line = std::string_view(m_text).substr(m_lineBegin);
        if (m_expected && m_expected->m_text.compare(m_lineBegin, line.size(), line) != 0) {
            _diverge(m_lineBegin);
        }
        m_lineBegin = m_text.size();
    }
    template <class... Parts>
    void line(const Parts&... parts) {
        (add(parts), ...);
        endLine();
    }

    // Whether nothing is missing at the end of a step.
    void finish() {
        if (m_text.size() != m_expected->m_text.size()) {
            _diverge(m_text.size());
        }
    }
    // The last lines.
    std::string tail() const {
        return _tail(m_text.size());
    }

private:
    void _append(std::string_view text) {
        m_text += text;
    }
    void _append(const char* text) {
        m_text += text ? text : "null";
    }
    void _append(bool flag) {
        m_text += flag ? "true" : "false";
    }
    void _append(dictionary::ItemType type) {
        m_text += "bifsd-?"[std::min<size_t>(static_cast<size_t>(type), 6)];
    }
    template <class T>
    std::enable_if_t<std::is_arithmetic_v<T>> _append(T value) {
        char digits[64];
        m_text.append(digits, std::to_chars(digits, digits + sizeof(digits), value).ptr);
    }

    [[noreturn]] void _diverge(size_t begin) const {
        const std::string& expected = m_expected->m_text;
        diverge(_tail(begin) +
                "expected: " + expected.substr(begin, expected.find('\n', begin) - begin) +
                "\nfound:    " + m_text.substr(begin));
    }
    std::string _tail(size_t end) const {
        size_t begin = end;
        for (int lines = 0; lines < 60 && begin > 1; ++lines) {
            begin = m_text.rfind('\n', begin - 2) + 1;
        }
        return m_text.substr(begin, end - begin);
    }

    const Transcript* m_expected;
    std::string m_text;
    size_t m_lineBegin = 0;
};

} // namespace vorn::fuzz
