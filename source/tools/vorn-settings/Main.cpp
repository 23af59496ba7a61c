// vorn-settings: reads, writes, watches and merges settings in JSON files.
#include "CommandLine.h"

#include <clocale>
#include <new>

using namespace vorn::tool;

namespace {

ExitCode run(Output& output, const Invocation& invocation) {
    const Command& command = *invocation.command;
    if (command.files != Command::Files::eUnused && invocation.files.empty()) {
        throw ToolError(ExitCode::eBadInput, "no file", command.name, "expected --file FILE");
    }
    Session session(output, invocation.isStrict);
    session.load(invocation.files, false);
    const ExitCode exitCode = command.run(session, invocation.arguments);
    if (command.files == Command::Files::eWritten) {
        session.writeBack(invocation.arguments.isDryRun);
    }
    return exitCode;
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, ""); // for line editing
    Output output;
    ExitCode exitCode = ExitCode::eDone;
    try {
        const Invocation invocation = parseInvocation(argc, argv);
        output = Output(invocation.colorMode);
        output.print(invocation.text);
        if (invocation.command) {
            exitCode = run(output, invocation);
        }
        output.flush();
    } catch (const ToolError& error) {
        output.trouble(error);
        exitCode = error.exitCode();
    } catch (const std::bad_alloc&) {
        output.trouble("out of memory: vorn-settings: expected more of it");
        exitCode = ExitCode::eBadInput;
    }
    return static_cast<int>(exitCode);
}
