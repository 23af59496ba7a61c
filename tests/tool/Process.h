// The tool as a program that a test starts, talks to and waits for.
#pragma once

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace vorn::test {

// Where a program runs and what it may do there.
struct Surroundings {
    std::string directory;
    std::string setup = "exec"; // what the tool and its arguments are appended to, for sh
    bool hasTerminal = false;   // input and output are a terminal
};

class Process {
public:
    Process(const std::vector<std::string>& arguments, const Surroundings& surroundings) {
        std::array<std::array<int, 2>, 3> streams = {{{-1, -1}, {-1, -1}, {-1, -1}}};
        for (auto& ends : streams) {
            if (!surroundings.hasTerminal && pipe2(ends.data(), O_CLOEXEC) != 0) {
                std::abort();
            }
        }
        int terminal = -1;
        m_pid = surroundings.hasTerminal ? forkpty(&terminal, nullptr, nullptr, nullptr) : fork();
        if (m_pid == 0) {
            dup2(streams[0][0], STDIN_FILENO); // nothing is done where there is a terminal
            dup2(streams[1][1], STDOUT_FILENO);
            dup2(streams[2][1], STDERR_FILENO);
            _become(arguments, surroundings);
        }
        for (int end : {streams[0][0], streams[1][1], streams[2][1]}) {
            close(end);
        }
        m_input = surroundings.hasTerminal ? dup(terminal) : streams[0][1];
        m_output.descriptor = surroundings.hasTerminal ? terminal : streams[1][0];
        m_errors.descriptor = streams[2][0];
    }
    // Kills it when it still runs.
    ~Process() {
        if (m_pid > 0) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, nullptr, 0);
        }
        for (int descriptor : {m_input, m_output.descriptor, m_errors.descriptor}) {
            close(descriptor); // nothing is done where it is closed
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void write(const std::string& text) {
        // A program that ends early leaves the rest unread; that is for the test to notice.
        std::signal(SIGPIPE, SIG_IGN);
        for (size_t done = 0; done < text.size();) {
            const ssize_t count = ::write(m_input, text.data() + done, text.size() - done);
            done = count < 0 ? text.size() : done + static_cast<size_t>(count);
        }
    }
    void closeInput() {
        close(std::exchange(m_input, -1));
    }

    // Reads until the text has come, after what was waited for before; false when the program
    // says nothing for ten seconds or ends without it.
    bool waitForOutput(const std::string& text) {
        return _waitFor(m_output, text);
    }
    bool waitForErrors(const std::string& text) {
        return _waitFor(m_errors, text);
    }

    void signal(int number) {
        kill(m_pid, number);
    }

    // Reads the rest and gives the exit code, or minus the signal that ended it: SIGKILL when it
    // says nothing for ten seconds and does not end.
    int wait() {
        while (_readSome()) {
            if (m_isSilent) {
                kill(m_pid, SIGKILL);
            }
        }
        int status = 0;
        waitpid(std::exchange(m_pid, -1), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

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

    // In the child.
    [[noreturn]] static void _become(const std::vector<std::string>& arguments,
                                     const Surroundings& surroundings) {
        const std::string script = surroundings.setup + " \"$0\" \"$@\"";
        std::vector<const char*> words = {"sh", "-c", script.c_str(), VORN_TOOL};
        for (const std::string& argument : arguments) {
            words.push_back(argument.c_str());
        }
        words.push_back(nullptr);
        setenv("TERM", "xterm", 1);
        setenv("XDG_STATE_HOME", surroundings.directory.c_str(), 1);
        if (chdir(surroundings.directory.c_str()) == 0) {
            execv("/bin/sh", const_cast<char**>(words.data()));
        }
        _exit(127);
    }

    bool _waitFor(Stream& stream, const std::string& text) {
        size_t at = 0;
        while ((at = stream.text.find(text, stream.seen)) == std::string::npos) {
            if (!_readSome() || m_isSilent) {
                return false;
            }
        }
        stream.seen = at + text.size();
        return true;
    }

    // False when both streams have ended.
    bool _readSome() {
        std::array<pollfd, 2> sources = {
            {{m_output.descriptor, POLLIN, 0}, {m_errors.descriptor, POLLIN, 0}}};
        m_isSilent = poll(sources.data(), sources.size(), 10000) == 0;
        for (Stream* stream : {&m_output, &m_errors}) {
            if (stream->descriptor < 0 || sources[stream == &m_errors].revents == 0) {
                continue;
            }
            std::array<char, 1 << 14> piece;
            const ssize_t count = read(stream->descriptor, piece.data(), piece.size());
            stream->text.append(piece.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
            if (count <= 0) {
                close(std::exchange(stream->descriptor, -1));
            }
        }
        return m_output.descriptor >= 0 || m_errors.descriptor >= 0;
    }

    pid_t m_pid = -1;
    bool m_isSilent = false; // nothing came in the time that was allowed
    int m_input = -1;
    Stream m_output, m_errors;
};

} // namespace vorn::test
