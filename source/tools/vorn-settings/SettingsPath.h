// The place of a setting as people write it: /app/view/width, with or without the first "/".
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorn::tool {

class SettingsPath {
public:
    // The root.
    SettingsPath() = default;

    // Takes one "/" off either end. Throws ToolError for an empty name and broken UTF-8.
    static SettingsPath parse(const std::string& text);

    SettingsPath child(std::string_view name) const;

    const std::vector<std::string>& names() const {
        return m_names;
    }
    bool isRoot() const {
        return m_names.empty();
    }

    // "/" and the names joined by "/"; the root is "/".
    std::string text() const;

private:
    std::vector<std::string> m_names;
};

// The path text of the child of that name.
std::string childPathText(const std::string& parentText, std::string_view name);

} // namespace vorn::tool
