// Reading and rewriting whole files so that nobody ever sees half of one.
#pragma once

#include <functional>
#include <string>

namespace vorn::tool {

// Everything in the file. Throws ToolError.
std::string readFile(const std::string& path);

// Puts change(old text) in the place of the file's text: through a temporary file beside it that
// takes its place in one step, with the file's mode and owner. A link stays, the file it leads to
// is replaced. Other writers of this kind wait; readers see the old text or the new one. Nothing
// is written when change throws or returns what it got. Throws ToolError.
void changeFile(const std::string& path,
                const std::function<std::string(const std::string& text)>& change);

// The same for a text that does not depend on the old one; the file need not exist.
void writeFile(const std::string& path, const std::string& text);

} // namespace vorn::tool
