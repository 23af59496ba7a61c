// Edits of a file.
#include "Edits.h"

#include "JsonText.h"
#include "ToolError.h"

#include <iterator>

namespace vorn::tool {

void Edits::set(const SettingsPath& path, const nlohmann::ordered_json& value) {
    m_edits.push_back({path, value});
}

void Edits::remove(const SettingsPath& path) {
    m_edits.push_back({path, {}});
}

void Edits::append(Edits&& later) {
    std::move(later.m_edits.begin(), later.m_edits.end(), std::back_inserter(m_edits));
    later.clear();
}

void Edits::clear() {
    m_edits.clear();
}

std::string Edits::appliedTo(const std::string& text, const std::string& file) const {
    JsonText json(text, file);
    for (const Edit& edit : m_edits) {
        if (edit.value) {
            json.set(edit.path, *edit.value);
        } else if (!json.remove(edit.path)) {
            throw ToolError(ExitCode::eNotFound, "not in the last file", edit.path.text(),
                            "expected a setting that " + file + " holds");
        }
    }
    return json.text();
}

} // namespace vorn::tool
