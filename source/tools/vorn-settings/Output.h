// What the tool prints: lines of results on standard output, lines of trouble on standard error,
// with colour where a person looks at them.
#pragma once

#include "ToolError.h"

#include <optional>
#include <string>
#include <string_view>

namespace vorn::tool {

enum class Paint { eNone, eInner, eText, eNumber, eFlag, eOld, eNew, eFaint, eTrouble };

// A setting that differs, with both values as JSON; no value where there is none.
struct Change {
    std::string path;
    std::optional<std::string> before;
    std::optional<std::string> after;
};

class Output {
public:
    // "auto": colour on a terminal, unless NO_COLOR is set; "always"; "never".
    explicit Output(const std::string& colorMode = "auto");

    // Columns of the terminal on standard output; past every number where there is none.
    static size_t width();

    void print(std::string_view text);
    void line(std::string_view text);
    std::string painted(Paint paint, const std::string& text) const;

    // "/x/y: 4 -> 5", a missing value as "unset"; and as the members of a JSON object.
    std::string changeText(const Change& change) const;
    static std::string changeJson(const Change& change);

    // "vorn-settings: <place: >message", after everything printed so far.
    void trouble(const std::string& message, const std::string& excerpt = "");
    void trouble(const ToolError& error, const std::string& place = "");

    // Hands everything to the system. Throws ToolError when standard output does not take it.
    void flush();

private:
    bool m_isOutColored;
    bool m_isErrorColored;
};

} // namespace vorn::tool
