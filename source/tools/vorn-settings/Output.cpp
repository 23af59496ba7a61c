// Printing.
#include "Output.h"

#include "TextPlace.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <unistd.h>

namespace vorn::tool {

namespace {

bool isColored(const std::string& colorMode, int descriptor) {
    if (colorMode != "auto") {
        return colorMode == "always";
    }
    const char* noColor = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    const bool isUnwanted = noColor && *noColor;
    const bool isPlain = !terminal || std::strcmp(terminal, "dumb") == 0;
    return !isUnwanted && !isPlain && isatty(descriptor) == 1;
}

const char* escapeOf(Paint paint) {
    switch (paint) {
    case Paint::eInner:
        return "\033[1;34m";
    case Paint::eText:
        return "\033[32m";
    case Paint::eNumber:
        return "\033[36m";
    case Paint::eFlag:
        return "\033[33m";
    case Paint::eOld:
        return "\033[31m";
    case Paint::eNew:
        return "\033[32m";
    case Paint::eFaint:
        return "\033[2m";
    case Paint::eTrouble:
        return "\033[1;31m";
    case Paint::eNone:
        break;
    }
    return "";
}

std::string wrap(bool isColored, Paint paint, const std::string& text) {
    return isColored && paint != Paint::eNone && !text.empty() ? escapeOf(paint) + text + "\033[0m"
                                                               : text;
}

} // namespace

Output::Output(const std::string& colorMode)
    : m_isOutColored(isColored(colorMode, STDOUT_FILENO)),
      m_isErrorColored(isColored(colorMode, STDERR_FILENO)) {}

size_t Output::width() {
    winsize size = {};
    const bool isTerminal = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isTerminal ? size.ws_col : std::numeric_limits<size_t>::max();
}

void Output::print(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
}

void Output::line(std::string_view text) {
    print(text);
    print("\n");
}

std::string Output::painted(Paint paint, const std::string& text) const {
    return wrap(m_isOutColored, paint, text);
}

std::string Output::changeText(const Change& change) const {
    const auto shown = [this](const std::optional<std::string>& value, Paint paint) {
        return value ? painted(paint, *value) : painted(Paint::eFaint, "unset");
    };
    return change.path + ": " + shown(change.before, Paint::eOld) + " -> " +
           shown(change.after, Paint::eNew);
}

std::string Output::changeJson(const Change& change) {
    // There is no null among settings, so it can stand for a missing one.
    return "\"path\":" + nlohmann::ordered_json(change.path).dump() +
           ",\"old\":" + change.before.value_or("null") +
           ",\"new\":" + change.after.value_or("null");
}

void Output::trouble(const std::string& message, const std::string& excerpt) {
    std::fflush(stdout);
    const std::string text = wrap(m_isErrorColored, Paint::eTrouble, "vorn-settings:") + " " +
                             visibleText(message) + "\n" + excerpt;
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void Output::trouble(const ToolError& error, const std::string& place) {
    trouble(place.empty() ? error.what() : place + ": " + error.what(), error.excerpt());
}

void Output::flush() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        throw ToolError(ExitCode::eBadInput, "cannot write", "standard output",
                        std::string("expected room for the output (") + std::strerror(errno) + ")");
    }
}

} // namespace vorn::tool
