// vorn-settings: reads, writes, watches and merges settings in JSON files.
#include "CommandLine.h"

#include <clocale>
#include <langinfo.h>
#include <new>
#include <string_view>

using namespace vorn::tool;

namespace {

ExitCode run(Output& output, const Invocation& invocation) {
    const Command& command = *invocation.command;
    if (command.files != Command::Files::eUnused && invocation.files.empty()) {
        throw ToolError(ExitCode::eBadInput, "no file", command.name, "expected --file FILE");
    }
    Session session(output, invocation.isStrict);
    session.load(invocation.files, MergeKind::eDifferent);
    const ExitCode exitCode = command.run(session, invocation.arguments);
    if (command.files == Command::Files::eWritten) {
        invocation.arguments.isDryRun ? session.showWriteBack(invocation.arguments.isJson)
                                      : session.writeBack();
    }
    return exitCode;
}

// Texts are UTF-8 whatever the surroundings say: for line editing and for the width of characters.
void useUtf8() {
    const char* own = std::setlocale(LC_CTYPE, "");
    if (!own || std::string_view(nl_langinfo(CODESET)) != "UTF-8") {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

} // namespace

int main(int argc, char** argv) {
    useUtf8();
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
