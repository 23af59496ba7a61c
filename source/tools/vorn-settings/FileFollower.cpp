// Following files.
//
// Editors write a new file and rename it over the old one, so it is the directories that are
// watched: that of each file, and that of what it leads to when it is a link.
#include "FileFollower.h"

#include "ToolError.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace vorn::tool {

namespace {

constexpr int kQuietMilliseconds = 50;
constexpr uint32_t kChanges = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_CREATE;

int holdStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

} // namespace

FileFollower::FileFollower(const std::vector<std::string>& files)
    : m_files(files), m_inotify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      m_signals(holdStopSignals()) {
    _follow();
}

FileFollower::~FileFollower() {
    close(m_inotify);
    close(m_signals);
}

bool FileFollower::wait() {
    bool hasChanged = false;
    for (;;) {
        std::array<pollfd, 2> sources = {{{m_inotify, POLLIN, 0}, {m_signals, POLLIN, 0}}};
        const int ready =
            poll(sources.data(), sources.size(), hasChanged ? kQuietMilliseconds : -1);
        if (ready == 0) {
            _follow(); // a link may lead elsewhere now
            return true;
        }
        if (sources[1].revents != 0) {
            return false;
        }
        hasChanged = _takeEvents() || hasChanged;
    }
}

void FileFollower::_follow() {
    namespace fs = std::filesystem;
    for (const std::string& file : m_files) {
        std::error_code ignored;
        const fs::path absolute = fs::absolute(file, ignored);
        for (const fs::path& path : {absolute, fs::weakly_canonical(absolute, ignored)}) {
            const std::string directory = path.parent_path();
            const int watch = inotify_add_watch(m_inotify, directory.c_str(), kChanges);
            if (watch < 0) {
                throw ToolError(ExitCode::eBadInput, "cannot watch directory", directory,
                                std::string("expected room for a watch (") + std::strerror(errno) +
                                    ")");
            }
            m_names.emplace(watch, path.filename());
        }
    }
}

// Reads what has been told and says whether one of the files is among it.
bool FileFollower::_takeEvents() {
    alignas(inotify_event) std::array<char, 64 * (sizeof(inotify_event) + NAME_MAX + 1)> buffer;
    bool isOurs = false;
    ssize_t length = 0;
    while ((length = read(m_inotify, buffer.data(), buffer.size())) > 0) {
        for (ssize_t at = 0; at < length;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            const bool isLost = (event->mask & IN_Q_OVERFLOW) != 0;
            isOurs =
                isOurs || isLost || (event->len > 0 && m_names.count({event->wd, event->name}) > 0);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return isOurs;
}

} // namespace vorn::tool
