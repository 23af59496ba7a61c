// What the Tab key offers in the shell.
#pragma once

#include "Session.h"

#include <string>
#include <vector>

namespace vorn::tool {

// All that the word at the end of a line may become: a command, one of its options, a file, or the
// path of a setting. Ends in "/" where more may follow. before is the line up to the word.
std::vector<std::string>
completionsOf(const Session& session, const std::string& before, const std::string& word);

} // namespace vorn::tool
