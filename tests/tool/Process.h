// A program that a test starts, talks to and waits for.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace vorn::test {

// Where a program runs and what it may do there.
struct Surroundings {
    std::string directory;
    std::string setup = "exec"; // what the command is appended to, for sh
    bool hasTerminal = false;   // input and output are a terminal
};

class Process {
public:
    Process(const std::vector<std::string>& command, const Surroundings& surroundings);
    ~Process(); // kills it when it still runs
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void write(const std::string& text);
    void closeInput();

    // Reads until the text has come, after what was waited for before; false when ten seconds
    // pass or the program ends without it.
    bool waitForOutput(const std::string& text) {
        return _waitFor(m_output, text);
    }
    bool waitForErrors(const std::string& text) {
        return _waitFor(m_errors, text);
    }

    void signal(int number);

    // Reads the rest and gives the exit code, or minus the signal that ended it: SIGKILL when it
    // says nothing for ten seconds and does not end.
    int wait();

    const std::string& output() const {
        return m_output.text;
    }
    const std::string& errors() const {
        return m_errors.text;
    }

private:
    struct Stream {
        int descriptor = -1;
        std::string text;
        size_t seen = 0; // end of what was waited for
    };

    bool _readSome(int milliseconds);
    bool _waitFor(Stream& stream, const std::string& text);

    pid_t m_pid = -1;
    bool m_isSilent = false; // nothing came in the time that was allowed
    int m_input = -1;
    Stream m_output;
    Stream m_errors;
};

} // namespace vorn::test
