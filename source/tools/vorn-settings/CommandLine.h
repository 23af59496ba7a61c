// The commands' names and arguments, and how they are read: from the program's arguments and from
// a line of the shell.
#pragma once

#include "Commands.h"

#include <span>
#include <string>
#include <vector>

namespace CLI { // NOLINT(readability-identifier-naming): another's name
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

// The words of a line of the shell, as far as they are complete.
std::vector<std::string> wordsOf(const std::string& text);

// What may follow a command of the shell; nothing for no command.
struct Usage {
    std::vector<std::string> options;
    bool takesFiles = false;
};
Usage usageOf(const std::string& commandName);

} // namespace vorn::tool
