// Starting and driving programs.
#include "Process.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vorn::test {

static constexpr int kPatienceMilliseconds = 10000;

Process::Process(const std::vector<std::string>& command, const Surroundings& surroundings) {
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
        const std::string script = surroundings.setup + " \"$0\" \"$@\"";
        std::vector<const char*> arguments = {"sh", "-c", script.c_str()};
        for (const std::string& word : command) {
            arguments.push_back(word.c_str());
        }
        arguments.push_back(nullptr);
        setenv("TERM", "xterm", 1);
        setenv("XDG_STATE_HOME", surroundings.directory.c_str(), 1);
        if (chdir(surroundings.directory.c_str()) == 0) {
            execv("/bin/sh", const_cast<char**>(arguments.data()));
        }
        _exit(127);
    }
    for (int end : {streams[0][0], streams[1][1], streams[2][1]}) {
        close(end);
    }
    m_input = surroundings.hasTerminal ? dup(terminal) : streams[0][1];
    m_output.descriptor = surroundings.hasTerminal ? terminal : streams[1][0];
    m_errors.descriptor = streams[2][0];
}

Process::~Process() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    for (int descriptor : {m_input, m_output.descriptor, m_errors.descriptor}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void Process::write(const std::string& text) {
    // A program that ends early leaves the rest unread; that is for the test to notice.
    std::signal(SIGPIPE, SIG_IGN);
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(m_input, text.data() + done, text.size() - done);
        done = count < 0 ? text.size() : done + static_cast<size_t>(count);
    }
}

void Process::closeInput() {
    close(m_input);
    m_input = -1;
}

bool Process::_waitFor(Stream& stream, const std::string& text) {
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMilliseconds);
    size_t at = 0;
    while ((at = stream.text.find(text, stream.seen)) == std::string::npos) {
        if (std::chrono::steady_clock::now() > end || !_readSome(100)) {
            return false;
        }
    }
    stream.seen = at + text.size();
    return true;
}

// False when both streams have ended.
bool Process::_readSome(int milliseconds) {
    std::array<pollfd, 2> sources = {
        {{m_output.descriptor, POLLIN, 0}, {m_errors.descriptor, POLLIN, 0}}};
    m_isSilent = poll(sources.data(), sources.size(), milliseconds) == 0;
    const std::array<Stream*, 2> streams = {&m_output, &m_errors};
    for (size_t index = 0; index < streams.size(); ++index) {
        Stream& stream = *streams[index];
        if (stream.descriptor >= 0 && sources[index].revents != 0) {
            std::array<char, 1 << 14> piece;
            const ssize_t count = read(stream.descriptor, piece.data(), piece.size());
            if (count <= 0) {
                close(stream.descriptor);
                stream.descriptor = -1;
            } else {
                stream.text.append(piece.data(), static_cast<size_t>(count));
            }
        }
    }
    return m_output.descriptor >= 0 || m_errors.descriptor >= 0;
}

void Process::signal(int number) {
    kill(m_pid, number);
}

int Process::wait() {
    while (_readSome(kPatienceMilliseconds)) {
        if (m_isSilent) {
            kill(m_pid, SIGKILL);
        }
    }
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

} // namespace vorn::test
