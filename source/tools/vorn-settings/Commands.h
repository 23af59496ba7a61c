// What each command does, on the command line and in the shell.
#pragma once

#include "Session.h"
#include "ToolError.h"
#include "TreePicture.h"

#include <optional>
#include <string>
#include <vector>

namespace vorn::tool {

// What a command line says, for all commands.
struct Arguments {
    std::string path = "/";
    std::string value;
    std::string type;
    std::string command;            // help: the command asked about
    std::vector<std::string> files; // operands of the commands that take files
    std::string page;               // tree: the file to write a page to
    size_t depth = PictureForm::kUnlimited;
    std::optional<size_t> width; // none: that of the terminal
    bool isJson = false;
    bool isRecursive = false;
    ChildOrder order = ChildOrder::eAsStored;
    bool isForced = false;
    bool isKeeping = false;
    bool isDryRun = false;
    bool stopsOnError = false;
};

// All throw ToolError.
using CommandFn = ExitCode (*)(Session& session, const Arguments& arguments);

// -- reading
ExitCode getCommand(Session& session, const Arguments& arguments);
ExitCode typeCommand(Session& session, const Arguments& arguments);
ExitCode listCommand(Session& session, const Arguments& arguments);
ExitCode dumpCommand(Session& session, const Arguments& arguments);
ExitCode treeCommand(Session& session, const Arguments& arguments);

// -- writing: change the store and note the edit
ExitCode setCommand(Session& session, const Arguments& arguments);
ExitCode resetCommand(Session& session, const Arguments& arguments);

// -- files
ExitCode mergeCommand(Session& session, const Arguments& arguments);
ExitCode diffCommand(Session& session, const Arguments& arguments);
ExitCode loadCommand(Session& session, const Arguments& arguments);
ExitCode saveCommand(Session& session, const Arguments& arguments);

// -- events
ExitCode followCommand(Session& session, const Arguments& arguments);
ExitCode watchCommand(Session& session, const Arguments& arguments);
ExitCode unwatchCommand(Session& session, const Arguments& arguments);

// -- transactions
ExitCode beginCommand(Session& session, const Arguments& arguments);
ExitCode commitCommand(Session& session, const Arguments& arguments);
ExitCode abortCommand(Session& session, const Arguments& arguments);

} // namespace vorn::tool
