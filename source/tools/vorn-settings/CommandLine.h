// The commands' names and arguments, and how they are read: from the program's arguments and from
// a line of the shell.
#pragma once

#include "Commands.h"

#include <span>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace vorn::tool {

struct Command {
    enum class Place { eEverywhere, eProgram, eShell };
    enum class Files { eUnused, eRead, eWritten };

    const char* name;
    const char* usage;
    const char* summary;
    Place place;
    Files files; // what the program does with those of --file, which have to be there
    void (*declare)(CLI::App& parser, Arguments& arguments);
    CommandFn run;
};

std::span<const Command> commands();

// What the program was started with.
struct Invocation {
    std::vector<std::string> files;
    bool isStrict = false;
    std::string colorMode = "auto";
    const Command* command = nullptr;
    Arguments arguments;
    std::string text; // help or version, to be printed instead of running a command
};

// Throws ToolError.
Invocation parseInvocation(int argc, const char* const* argv);

// What a line of the shell asks for; no command for an empty line and a comment.
struct Line {
    const Command* command = nullptr;
    Arguments arguments;
};

// Words are separated by blanks and may be quoted; the value of set is the rest of the line as it
// stands. Throws ToolError.
Line parseLine(const std::string& text);

} // namespace vorn::tool
