// Reading command lines.
#include "CommandLine.h"

#include "Shell.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>
#include <string_view>

namespace vorn::tool {

namespace {

// ---------------------------------------------------------------------------------------------
// What the commands take

void takeNothing(CLI::App&, Arguments&) {}

void takePath(CLI::App& parser, Arguments& arguments) {
    parser.add_option("PATH", arguments.path, "The setting, such as /app/view/width")->required();
}

void takeOptionalPath(CLI::App& parser, Arguments& arguments) {
    parser.add_option("PATH", arguments.path, "The setting; all when left out");
}

void takeJson(CLI::App& parser, Arguments& arguments) {
    parser.add_flag("--json", arguments.isJson, "Print JSON");
}

void takeDryRun(CLI::App& parser, Arguments& arguments) {
    const CLI::Option* isDryRun =
        parser.add_flag("--dry-run", arguments.isDryRun, "Only print what would change");
    parser.add_flag("--json", arguments.isJson, "Print that as JSON")
        ->needs(const_cast<CLI::Option*>(isDryRun));
}

void takeFiles(CLI::App& parser, Arguments& arguments, int count) {
    parser.add_option("FILE", arguments.files, "JSON file")->required()->expected(count);
}

void declareReading(CLI::App& parser, Arguments& arguments) {
    takePath(parser, arguments);
    takeJson(parser, arguments);
}

void declareReadingAll(CLI::App& parser, Arguments& arguments) {
    takeOptionalPath(parser, arguments);
    takeJson(parser, arguments);
}

void takeSort(CLI::App& parser, Arguments& arguments) {
    parser.add_flag_callback(
        "--sort", [&arguments] { arguments.order = ChildOrder::eByName; },
        "By name instead of in the order of the file");
}

void declareList(CLI::App& parser, Arguments& arguments) {
    declareReadingAll(parser, arguments);
    parser.add_flag("-r,--recursive", arguments.isRecursive, "All below, with their paths");
    takeSort(parser, arguments);
}

void declareTree(CLI::App& parser, Arguments& arguments) {
    declareReadingAll(parser, arguments);
    takeSort(parser, arguments);
    CLI::Option* depth = parser.add_option("--depth", arguments.depth, "Levels to show")
                             ->check(CLI::NonNegativeNumber)
                             ->type_name("LEVELS");
    CLI::Option* width =
        parser
            .add_option("--width", arguments.width, "Cut lines there, not at the terminal's edge")
            ->check(CLI::PositiveNumber)
            ->type_name("COLUMNS");
    parser
        .add_option("--html", arguments.page,
                    "Write a page for a browser to FILE (- for standard output)")
        ->type_name("FILE")
        ->excludes(depth, width, parser.get_option("--json"));
}

void declareSet(CLI::App& parser, Arguments& arguments) {
    takePath(parser, arguments);
    parser.add_option("VALUE", arguments.value, "JSON, or any other text for a string")->required();
    parser.add_option("--type", arguments.type, "Take VALUE as bool, int, float, string or json")
        ->check(CLI::IsMember({"bool", "int", "float", "string", "json"}));
    takeDryRun(parser, arguments);
}

void declareReset(CLI::App& parser, Arguments& arguments) {
    takePath(parser, arguments);
    parser.add_flag("--force", arguments.isForced, "Also an inner node, with all below it");
    takeDryRun(parser, arguments);
}

void declareLoad(CLI::App& parser, Arguments& arguments) {
    takeFiles(parser, arguments, -1);
    parser.add_flag("--keep", arguments.isKeeping, "Settings that exist win");
}

void declareMerge(CLI::App& parser, Arguments& arguments) {
    declareLoad(parser, arguments);
    takeJson(parser, arguments); // as everywhere; it prints nothing else
}

void declareDiff(CLI::App& parser, Arguments& arguments) {
    takeFiles(parser, arguments, 2);
    takeJson(parser, arguments);
}

void declareSave(CLI::App& parser, Arguments& arguments) {
    takeFiles(parser, arguments, 1);
    parser.get_option("FILE")->required(false);
    takeDryRun(parser, arguments);
}

void declareShell(CLI::App& parser, Arguments& arguments) {
    parser.add_flag("--stop-on-error", arguments.stopsOnError, "End at the first line that fails");
}

void declareHelp(CLI::App& parser, Arguments& arguments) {
    parser.add_option("COMMAND", arguments.command, "The command to explain");
}

// ---------------------------------------------------------------------------------------------
// The table

using enum Command::Place;
using enum Command::Files;

// clang-format off
constexpr Command kCommands[] = {
    {"get", "get [--json] PATH",
     "Print the value of a setting",
     eEverywhere, eRead, declareReading, getCommand},
    {"set", "set [--type TYPE] [--dry-run] PATH VALUE",
     "Give a setting a value",
     eEverywhere, eWritten, declareSet, setCommand},
    {"type", "type [--json] PATH",
     "Print the type of a setting",
     eEverywhere, eRead, declareReading, typeCommand},
    {"list", "list [-r] [--sort] [--json] [PATH]",
     "List what is below a node",
     eEverywhere, eRead, declareList, listCommand},
    {"dump", "dump [PATH]",
     "Print settings as JSON",
     eEverywhere, eRead, declareReadingAll, dumpCommand},
    {"tree", "tree [--depth LEVELS] [--width COLUMNS] [--sort] [--json | --html FILE] [PATH]",
     "Draw what is below a node, or make a page of it",
     eEverywhere, eRead, declareTree, treeCommand},
    {"reset", "reset [--force] [--dry-run] PATH",
     "Remove a setting",
     eEverywhere, eWritten, declareReset, resetCommand},
    {"merge", "merge [--keep] FILE...",
     "Print files merged into one, later ones over earlier ones",
     eEverywhere, eUnused, declareMerge, mergeCommand},
    {"diff", "diff [--json] FILE FILE",
     "Print the settings that differ",
     eEverywhere, eUnused, declareDiff, diffCommand},
    {"watch", "watch [--json] [PATH]",
     "Follow the files and print what changes in them",
     eProgram, eRead, declareReadingAll, followCommand},
    {"shell", "shell [--stop-on-error]",
     "Read commands from the terminal or from a script",
     eProgram, eUnused, declareShell, shellCommand},
    {"watch", "watch [--json] [PATH]",
     "Print what happens to a node and below it from now on",
     eShell, eUnused, declareReadingAll, watchCommand},
    {"unwatch", "unwatch [PATH]",
     "End a watch, or all",
     eShell, eUnused, takeOptionalPath, unwatchCommand},
    {"begin", "begin",
     "Collect what is set from now on",
     eShell, eUnused, takeNothing, beginCommand},
    {"commit", "commit",
     "Set all that was collected",
     eShell, eUnused, takeNothing, commitCommand},
    {"abort", "abort",
     "Forget what was collected",
     eShell, eUnused, takeNothing, abortCommand},
    {"load", "load [--keep] FILE...",
     "Merge files over the settings",
     eShell, eUnused, declareLoad, loadCommand},
    {"save", "save [--dry-run] [FILE]",
     "Write the changes to the last file, or everything to FILE",
     eShell, eUnused, declareSave, saveCommand},
    {"help", "help [COMMAND]",
     "Explain the commands",
     eShell, eUnused, declareHelp, helpCommand},
    {"quit", "quit",
     "Leave",
     eShell, eUnused, takeNothing, quitCommand},
};
// clang-format on

const Command* findCommand(std::string_view name, Command::Place place) {
    for (const Command& command : kCommands) {
        if (command.name == name && (command.place == eEverywhere || command.place == place)) {
            return &command;
        }
    }
    return nullptr;
}

std::string commandNames(Command::Place place) {
    std::string names;
    for (const Command& command : kCommands) {
        if (command.place == eEverywhere || command.place == place) {
            names += names.empty() ? "" : ", ";
            names += command.name;
        }
    }
    return names;
}

ToolError unknownCommand(const std::string& name, Command::Place place) {
    const char* what = name.starts_with('-') ? "unknown option" : "unknown command";
    return ToolError(ExitCode::eBadInput, what, name, "expected " + commandNames(place));
}

ToolError badUsage(const CLI::Error& error, const Command& command) {
    return ToolError(ExitCode::eBadInput, error.what(), command.name,
                     std::string("expected ") + command.usage);
}

// ---------------------------------------------------------------------------------------------
// Lines of the shell

constexpr const char* kBlanks = " \t\r";

// Takes a line apart from its front.
class Words {
public:
    explicit Words(std::string_view line) : m_rest(line) {
        _skipBlanks();
    }

    bool hasMore() const {
        return !m_rest.empty();
    }

    std::string next() {
        const char quote = m_rest.front();
        const bool isQuoted = quote == '"' || quote == '\'';
        const size_t begin = isQuoted ? 1 : 0;
        const size_t end = isQuoted ? m_rest.find(quote, 1) : m_rest.find_first_of(kBlanks);
        if (isQuoted && end == std::string_view::npos) {
            throw ToolError(ExitCode::eBadInput, "open quote", std::string(m_rest),
                            std::string("expected ") + quote + " at its end");
        }
        std::string word(m_rest.substr(begin, end - begin));
        m_rest.remove_prefix(std::min(isQuoted ? end + 1 : end, m_rest.size()));
        _skipBlanks();
        return word;
    }

    // All that is left, without the blanks at its end.
    std::string rest() {
        const size_t end = m_rest.find_last_not_of(kBlanks);
        return std::string(m_rest.substr(0, end + 1));
    }

private:
    void _skipBlanks() {
        m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size()));
    }

    std::string_view m_rest;
};

// Options, path and value of set: the value is the rest of the line, whatever is in it.
std::vector<std::string> wordsOfSet(Words& words) {
    std::vector<std::string> result;
    while (words.hasMore()) {
        const std::string word = words.next();
        const bool isOption = word.starts_with("-");
        if (!isOption) {
            result.insert(result.end(), {"--", word});
            if (words.hasMore()) {
                result.push_back(words.rest());
            }
            break;
        }
        result.push_back(word);
        if (word == "--type" && words.hasMore()) {
            result.push_back(words.next());
        }
    }
    return result;
}

std::vector<std::string> allWords(Words& words) {
    std::vector<std::string> result;
    while (words.hasMore()) {
        result.push_back(words.next());
    }
    return result;
}

// ---------------------------------------------------------------------------------------------
// Arguments of the program

constexpr const char* kExamples = R"(Examples:
  vorn-settings --file app.json get /app/view/width
  vorn-settings --file app.json set /app/view/width 1280
  vorn-settings --file app.json set /app/view/modes '["day", "night"]'
  vorn-settings --file app.json set --type string /app/version 1.10
  vorn-settings --file defaults.json --file user.json list -r /app
  vorn-settings --file app.json tree --html app.html
  vorn-settings --file app.json reset --dry-run /app/view/width
  vorn-settings --file app.json watch /app
  vorn-settings merge defaults.json user.json
  vorn-settings diff old.json new.json
  vorn-settings --file app.json shell < commands.txt

Exit status: 0 done, 1 not found or different, 2 bad usage or bad input.)";

} // namespace

std::span<const Command> commands() {
    return kCommands;
}

Line parseLine(const std::string& text) {
    Words words(text);
    if (!words.hasMore() || text[text.find_first_not_of(kBlanks)] == '#') {
        return {};
    }
    const std::string name = words.next();
    Line line;
    line.command = findCommand(name, eShell);
    if (!line.command) {
        throw unknownCommand(name, eShell);
    }
    CLI::App parser(line.command->summary, line.command->name);
    parser.set_help_flag();
    line.command->declare(parser, line.arguments);
    std::vector<std::string> arguments =
        line.command->run == setCommand ? wordsOfSet(words) : allWords(words);
    std::reverse(arguments.begin(), arguments.end());
    try {
        parser.parse(arguments);
    } catch (const CLI::Error& error) {
        throw badUsage(error, *line.command);
    }
    return line;
}

std::vector<std::string> wordsOf(const std::string& text) {
    try {
        Words words(text);
        return allWords(words);
    } catch (const ToolError&) {
        return {}; // an open quote
    }
}

Usage usageOf(const std::string& commandName) {
    Usage usage;
    if (const Command* command = findCommand(commandName, eShell)) {
        CLI::App parser;
        parser.set_help_flag();
        Arguments arguments;
        command->declare(parser, arguments);
        for (const CLI::Option* option : parser.get_options()) {
            for (const std::string& name : option->get_lnames()) {
                usage.options.push_back("--" + name);
            }
        }
        usage.takesFiles = parser.get_option_no_throw("FILE") != nullptr;
    }
    return usage;
}

Invocation parseInvocation(int argc, const char* const* argv) {
    Invocation invocation;
    CLI::App parser("Read, write, watch and merge settings in JSON files.", "vorn-settings");
    parser.set_version_flag("--version", "vorn-settings " VORN_VERSION);
    parser.require_subcommand(1);
    parser.add_option("--file", invocation.files, "Settings file; may be repeated, later ones win")
        ->allow_extra_args(false)
        ->type_name("FILE");
    parser.add_flag("--strict", invocation.isStrict,
                    "Refuse files with what settings cannot hold, such as null");
    parser.add_option("--color", invocation.colorMode, "auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN");
    parser.get_formatter()->label("SUBCOMMAND", "COMMAND");
    parser.get_formatter()->label("TEXT", "");
    for (const Command& command : kCommands) {
        if (command.place != eShell) {
            CLI::App* subparser = parser.add_subcommand(command.name, command.summary);
            subparser->fallthrough();
            subparser->group("Commands");
            command.declare(*subparser, invocation.arguments);
        }
    }
    parser.footer(kExamples); // of the program's own help only

    const auto chosen = [&parser]() -> const Command* {
        const auto subparsers = parser.get_subcommands();
        return subparsers.empty() ? nullptr : findCommand(subparsers[0]->get_name(), eProgram);
    };
    try {
        parser.parse(argc, argv);
        invocation.command = chosen();
    } catch (const CLI::CallForHelp&) {
        invocation.text = parser.help();
    } catch (const CLI::CallForVersion& version) {
        invocation.text = std::string(version.what()) + "\n";
    } catch (const CLI::Error& error) {
        const std::vector<std::string> extras = parser.remaining(true);
        if (const Command* command = chosen()) {
            throw badUsage(error, *command);
        }
        if (!extras.empty()) {
            throw unknownCommand(extras.front(), eProgram);
        }
        const bool isMissing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
        throw ToolError(ExitCode::eBadInput, isMissing ? "no command" : error.what(),
                        "command line", "expected --help, or one of " + commandNames(eProgram));
    }
    return invocation;
}

} // namespace vorn::tool
