// The tool as a program that a test starts, talks to and waits for.
#pragma once

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <pty.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace vorn::test {

// Where a program runs and what it may do there.
struct Surroundings {
    std::string directory;
    std::string setup = "exec"; // for sh: what the tool and its arguments are appended to
    std::string errors = "&1";  // the file that they go to; to the output, like this
    bool hasTerminal = false;   // input and output are a terminal
};

class Process {
public:
    Process(const std::vector<std::string>& arguments, const Surroundings& where) {
        std::array<int, 2> ends = {-1, -1}; // ours and the program's
        if (!where.hasTerminal &&
            socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
            std::abort();
        }
        m_pid = where.hasTerminal ? forkpty(&ends[0], nullptr, nullptr, nullptr) : fork();
        if (m_pid == 0) {
            dup2(ends[1], STDIN_FILENO); // nothing is done where there is a terminal
            dup2(ends[1], STDOUT_FILENO);
            _become(arguments, where);
        }
        close(ends[1]);
        m_stream = ends[0];
        alarm(60);                     // for all of them: a program that hangs ends the tests
        std::signal(SIGPIPE, SIG_IGN); // it may end early
    }
    // Kills it when it still runs.
    ~Process() {
        if (m_pid > 0) {
            signal(SIGKILL);
            wait();
        }
        close(m_stream);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    bool write(const std::string& text) {
        return ::write(m_stream, text.data(), text.size()) == ssize_t(text.size());
    }
    void closeInput() {
        shutdown(m_stream, SHUT_WR);
    }
    void signal(int number) {
        kill(m_pid, number);
    }

    // Reads until the text has come, after what was waited for before; false when the program ends
    // without it.
    bool waitFor(const std::string& text) {
        size_t at = 0;
        while ((at = output.find(text, m_seen)) == std::string::npos) {
            if (!_readSome()) {
                return false;
            }
        }
        m_seen = at + text.size();
        return true;
    }

    // Reads the rest and gives the exit code, or minus the signal that ended it.
    int wait() {
        while (_readSome()) {
        }
        int status = 0;
        waitpid(std::exchange(m_pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    std::string output; // so far

private:
    // In the child.
    [[noreturn]] static void _become(const std::vector<std::string>& arguments,
                                     const Surroundings& where) {
        const std::string script = where.setup + " \"$0\" \"$@\" 2>" + where.errors;
        std::vector<const char*> words = {"sh", "-c", script.c_str(), VORN_TOOL};
        for (const std::string& argument : arguments) {
            words.push_back(argument.c_str());
        }
        words.push_back(nullptr);
        setenv("TERM", "xterm", 1);
        setenv("XDG_STATE_HOME", where.directory.c_str(), 1);
        if (chdir(where.directory.c_str()) == 0) {
            execv("/bin/sh", const_cast<char**>(words.data()));
        }
        _exit(127);
    }

    // False at the end.
    bool _readSome() {
        std::array<char, 1 << 14> piece;
        const ssize_t count = read(m_stream, piece.data(), piece.size());
        output.append(piece.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return count > 0;
    }

    pid_t m_pid = -1;
    int m_stream = -1; // its input and output
    size_t m_seen = 0; // end of what was waited for
};

} // namespace vorn::test
