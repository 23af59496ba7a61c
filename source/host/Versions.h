// The version rule, the text form of versions and interfaces, and the form in which a refusal
// travels. Pure functions.
#pragma once

#include "vorn/Framework.h"

#include <cstring>
#include <optional>
#include <string>

namespace vorn::host {

// Why something was refused, as a sentence without its full stop; empty when it was not.
using Refusal = std::optional<std::string>;

// 0.4 serves a wish for 0.3 and 0.4, but not one for 0.5 or 1.3.
constexpr bool serves(Version offered, Version wanted) {
    return offered.major == wanted.major && offered.minor >= wanted.minor;
}

inline bool hasName(const InterfaceDesc& desc, const char* name) {
    return desc.name && name && std::strcmp(desc.name, name) == 0;
}

inline bool serves(const InterfaceDesc& offered, const InterfaceDesc& wanted) {
    return hasName(offered, wanted.name) && serves(offered.version, wanted.version);
}

inline std::string toText(Version version) {
    return std::to_string(version.major) + "." + std::to_string(version.minor);
}

inline std::string toText(const InterfaceDesc& desc) {
    return std::string(desc.name ? desc.name : "(null)") + " " + toText(desc.version);
}

// The one form of every refusal: who, what was expected, what was found.
inline std::string refusalText(const std::string& who,
                               const std::string& verdict,
                               const std::string& expected,
                               const std::string& found) {
    return who + " " + verdict + ": expected " + expected + ", found " + found;
}

} // namespace vorn::host
