// What goes wrong in the tool: one line "what: where: what was expected", the exit code that goes
// with it, and for broken text the place, shown.
#pragma once

#include <stdexcept>
#include <string>

namespace vorn::tool {

enum class ExitCode : int {
    eDone = 0,
    eNotFound = 1, // also: files that differ
    eBadInput = 2, // also: bad usage
};

class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode exitCode,
              const std::string& what,
              const std::string& where,
              const std::string& expected,
              std::string excerpt = "")
        : std::runtime_error(what + ": " + where + ": " + expected), m_exitCode(exitCode),
          m_excerpt(std::move(excerpt)) {}

    ExitCode exitCode() const {
        return m_exitCode;
    }

    // Whole lines that show the place in the text; empty for most errors.
    const std::string& excerpt() const {
        return m_excerpt;
    }

private:
    ExitCode m_exitCode;
    std::string m_excerpt;
};

// Text that is no JSON, as opposed to JSON that cannot be used.
class JsonSyntaxError : public ToolError {
public:
    using ToolError::ToolError;
};

} // namespace vorn::tool
