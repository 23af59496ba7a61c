// Starting and driving programs.
#include "Process.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vorn::test {

static constexpr int kPatienceMilliseconds = 10000;

Process::Process(const std::vector<std::string>& command, const Surroundings& surroundings) {
    if (surroundings.hasTerminal) {
        m_pid = forkpty(&m_output.descriptor, nullptr, nullptr, nullptr);
        if (m_pid == 0) {
            setenv("TERM", "xterm", 1);
            _startInChild(command, surroundings);
        }
        m_input = dup(m_output.descriptor);
        return;
    }
    std::array<std::array<int, 2>, 3> pipes;
    for (auto& ends : pipes) {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            std::abort();
        }
    }
    m_pid = fork();
    if (m_pid == 0) {
        dup2(pipes[0][0], STDIN_FILENO);
        dup2(surroundings.output.empty() ? pipes[1][1]
                                         : open(surroundings.output.c_str(), O_WRONLY | O_CLOEXEC),
             STDOUT_FILENO);
        dup2(pipes[2][1], STDERR_FILENO);
        _startInChild(command, surroundings);
    }
    close(pipes[0][0]);
    close(pipes[1][1]);
    close(pipes[2][1]);
    m_input = pipes[0][1];
    m_output.descriptor = pipes[1][0];
    m_errors.descriptor = pipes[2][0];
}

void Process::_startInChild(const std::vector<std::string>& command,
                            const Surroundings& surroundings) {
    if (surroundings.isRestrained) {
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
    }
    if (surroundings.fileSizeLimit > 0) {
        const rlimit limit = {surroundings.fileSizeLimit, surroundings.fileSizeLimit};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN); // the write fails instead
    }
    std::vector<char*> arguments;
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    if (chdir(surroundings.directory.c_str()) == 0) {
        execv(arguments[0], arguments.data());
    }
    _exit(127);
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
        if (count < 0) {
            return;
        }
        done += static_cast<size_t>(count);
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
