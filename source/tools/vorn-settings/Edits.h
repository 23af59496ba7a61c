// What was set and removed since the files were read, to be written back to the last of them.
#pragma once

#include "SettingsPath.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace vorn::tool {

class Edits {
public:
    void set(const SettingsPath& path, const nlohmann::ordered_json& value);
    void remove(const SettingsPath& path);
    void append(Edits&& later);
    void clear();

    size_t count() const {
        return m_edits.size();
    }

    // The text of the file with all edits, everything else as it is. Throws ToolError when the
    // file does not hold what is to be removed.
    std::string appliedTo(const std::string& text, const std::string& file) const;

private:
    struct Edit {
        SettingsPath path;
        std::optional<nlohmann::ordered_json> value; // none: remove
    };

    std::vector<Edit> m_edits;
};

} // namespace vorn::tool
