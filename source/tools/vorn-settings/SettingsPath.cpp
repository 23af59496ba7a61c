// Paths of settings.
#include "SettingsPath.h"

#include "TextPlace.h"
#include "ToolError.h"

namespace vorn::tool {

SettingsPath SettingsPath::parse(const std::string& text) {
    if (!isUtf8(text) || text.find('\0') != std::string::npos) {
        throw ToolError(ExitCode::eBadInput, "bad path", text, "expected names in UTF-8");
    }
    std::string_view rest = text;
    if (rest.starts_with('/')) {
        rest.remove_prefix(1);
    }
    if (rest.ends_with('/')) {
        rest.remove_suffix(1);
    }
    SettingsPath path;
    while (!rest.empty()) {
        const size_t slash = rest.find('/');
        path.m_names.emplace_back(rest.substr(0, slash));
        if (path.m_names.back().empty() || slash + 1 == rest.size()) {
            throw ToolError(ExitCode::eBadInput, "bad path", text,
                            "expected a name between \"/\" and \"/\"");
        }
        rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
    }
    return path;
}

SettingsPath SettingsPath::child(std::string_view name) const {
    SettingsPath path = *this;
    path.m_names.emplace_back(name);
    return path;
}

std::string SettingsPath::text() const {
    std::string text;
    for (const std::string& name : m_names) {
        text += '/';
        text += name;
    }
    return text.empty() ? "/" : text;
}

std::string childPathText(const std::string& parentText, std::string_view name) {
    std::string text = parentText == "/" ? "" : parentText;
    text += '/';
    text += name;
    return text;
}

} // namespace vorn::tool
