// The shell: commands line by line, typed at a prompt or read from a script.
#pragma once

#include "Commands.h"

namespace vorn::tool {

// From a terminal: a prompt with history and completion. From anything else: a script, in which a
// line that fails is reported with its number; the result is the worst of all lines.
ExitCode shellCommand(Session& session, const Arguments& arguments);

ExitCode helpCommand(Session& session, const Arguments& arguments);
ExitCode quitCommand(Session& session, const Arguments& arguments);

} // namespace vorn::tool
