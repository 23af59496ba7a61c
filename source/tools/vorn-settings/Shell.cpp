// The shell.
#include "Shell.h"

#include "CommandLine.h"
#include "Completion.h"
#include "LineEditor.h"

#include <algorithm>
#include <iostream>
#include <unistd.h>

namespace vorn::tool {

namespace {

constexpr const char* kPrompt = "vorn> ";

ExitCode runLine(Session& session, const std::string& text) {
    const Line line = parseLine(text);
    return line.command ? line.command->run(session, line.arguments) : ExitCode::eDone;
}

ExitCode runScript(Session& session, bool stopsOnError) {
    ExitCode worst = ExitCode::eDone;
    const auto fail = [&](const ToolError& error, const std::string& place) {
        session.output.trouble(error, place);
        worst = std::max(worst, error.exitCode());
        session.isOver = session.isOver || stopsOnError;
    };
    std::string text;
    for (size_t number = 1; !session.isOver && std::getline(std::cin, text); ++number) {
        try {
            worst = std::max(worst, runLine(session, text));
        } catch (const ToolError& error) {
            fail(error, "line " + std::to_string(number));
        }
    }
    if (session.pending) {
        fail(ToolError(ExitCode::eBadInput, "transaction open", "end of script",
                       "expected commit or abort"),
             "");
    }
    return worst;
}

ExitCode runPrompt(Session& session) {
    LineEditor editor(kPrompt, [&session](const std::string& before, const std::string& word) {
        return completionsOf(session, before, word);
    });
    while (!session.isOver) {
        const std::optional<std::string> text = editor.readLine();
        if (!text) {
            session.output.line("");
            break;
        }
        try {
            runLine(session, *text);
        } catch (const ToolError& error) {
            session.output.trouble(error);
        }
        session.output.flush();
    }
    return ExitCode::eDone;
}

} // namespace

ExitCode shellCommand(Session& session, const Arguments& arguments) {
    session.isShell = true;
    return isatty(STDIN_FILENO) == 1 ? runPrompt(session)
                                     : runScript(session, arguments.stopsOnError);
}

ExitCode helpCommand(Session& session, const Arguments& arguments) {
    constexpr size_t kUsageWidth = 42;
    bool isFound = false;
    for (const Command& command : commands()) {
        const bool isMeant = arguments.command.empty() || arguments.command == command.name;
        if (isMeant && command.place != Command::Place::eProgram) {
            std::string usage = command.usage;
            usage.resize(std::max(usage.size() + 1, kUsageWidth), ' ');
            session.output.line("  " + usage + command.summary);
            isFound = true;
        }
    }
    if (!isFound) {
        throw ToolError(ExitCode::eBadInput, "unknown command", arguments.command,
                        "expected one that help lists");
    }
    return ExitCode::eDone;
}

ExitCode quitCommand(Session& session, const Arguments&) {
    session.isOver = true;
    return ExitCode::eDone;
}

} // namespace vorn::tool
