// Whole files.
#include "FileAccess.h"

#include "ToolError.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace vorn::tool {

namespace {

[[noreturn]] void failReading(const std::string& path, const std::string& expected) {
    throw ToolError(ExitCode::eBadInput, "cannot read file", path, expected);
}

[[noreturn]] void failWriting(const std::string& path, const std::string& expected) {
    throw ToolError(ExitCode::eBadInput, "cannot write file", path, expected);
}

// "expected <what> (<reason of the failed system call>)"
std::string expectedBut(const std::string& what) {
    return "expected " + what + " (" + std::strerror(errno) + ")";
}

class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : m_descriptor(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~Descriptor() {
        if (m_descriptor >= 0) {
            close(m_descriptor);
        }
    }
    int get() const {
        return m_descriptor;
    }

private:
    int m_descriptor;
};

// Keeps the signals that end a program waiting, so that no temporary file is left behind.
class SignalPause {
public:
    SignalPause() {
        sigset_t signals;
        sigemptyset(&signals);
        for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
            sigaddset(&signals, signal);
        }
        sigprocmask(SIG_BLOCK, &signals, &m_before);
    }
    ~SignalPause() {
        sigprocmask(SIG_SETMASK, &m_before, nullptr);
    }
    SignalPause(const SignalPause&) = delete;
    SignalPause& operator=(const SignalPause&) = delete;

private:
    sigset_t m_before;
};

// A file beside the one it is to replace; gone again unless it has taken the place.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& target) : m_target(target) {
        const size_t slash = target.rfind('/');
        m_directory = slash == std::string::npos ? "." : target.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
        m_path = m_directory + "/." + name + ".XXXXXX";
        m_descriptor = Descriptor(mkostemp(m_path.data(), O_CLOEXEC));
        if (m_descriptor.get() < 0) {
            failWriting(target, expectedBut("a writable directory"));
        }
    }
    ~TemporaryFile() {
        if (!m_isInPlace) {
            unlink(m_path.c_str());
        }
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void write(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t written = ::write(m_descriptor.get(), text.data(), text.size());
            if (written < 0) {
                if (errno == EINTR) {
                    continue;
                }
                failWriting(m_target, expectedBut("room for the new text"));
            }
            text.remove_prefix(static_cast<size_t>(written));
        }
    }

    void takeOwnerAndMode(const struct stat& original) const {
        struct stat own = {};
        fstat(m_descriptor.get(), &own);
        const bool isOwnerKept = own.st_uid == original.st_uid && own.st_gid == original.st_gid;
        if ((!isOwnerKept && fchown(m_descriptor.get(), original.st_uid, original.st_gid) != 0) ||
            fchmod(m_descriptor.get(), original.st_mode & 07777) != 0) {
            failWriting(m_target, expectedBut("permission to keep its owner and mode"));
        }
    }

    void takeDefaultMode() const {
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(m_descriptor.get(), 0666 & ~mask);
    }

    void putInPlace() {
        if (fsync(m_descriptor.get()) != 0 || rename(m_path.c_str(), m_target.c_str()) != 0) {
            failWriting(m_target, expectedBut("a file that can be replaced"));
        }
        m_isInPlace = true;
        const Descriptor directory(open(m_directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        fsync(directory.get());
    }

private:
    std::string m_target;
    std::string m_directory;
    std::string m_path;
    Descriptor m_descriptor;
    bool m_isInPlace = false;
};

// The file behind links; the path itself when there is none.
std::string realPath(const std::string& path) {
    const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
    return real ? real.get() : path;
}

Descriptor openForReading(const std::string& path) {
    Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        failReading(path, expectedBut(errno == ENOENT ? "an existing file" : "a readable file"));
    }
    struct stat status = {};
    fstat(file.get(), &status);
    if (S_ISDIR(status.st_mode)) {
        failReading(path, "expected a file, found a directory");
    }
    return file;
}

std::string readAll(const Descriptor& file, const std::string& path) {
    constexpr size_t kPiece = 1 << 16;
    std::string text;
    struct stat status = {};
    fstat(file.get(), &status);
    text.reserve(static_cast<size_t>(status.st_size) + kPiece);
    for (;;) {
        const size_t length = text.size();
        text.resize(length + kPiece);
        const ssize_t count = read(file.get(), text.data() + length, kPiece);
        text.resize(length + (count > 0 ? static_cast<size_t>(count) : 0));
        if (count == 0) {
            return text;
        }
        if (count < 0 && errno != EINTR) {
            failReading(path, expectedBut("a readable file"));
        }
    }
}

// The file, opened and locked against other writers; opened again where one of them has put
// another file in its place meanwhile.
Descriptor openAndLock(const std::string& path) {
    for (;;) {
        Descriptor file = openForReading(path);
        if (flock(file.get(), LOCK_EX) != 0) {
            failWriting(path, expectedBut("a file that can be locked"));
        }
        struct stat locked = {};
        struct stat current = {};
        if (fstat(file.get(), &locked) == 0 && stat(path.c_str(), &current) == 0 &&
            locked.st_dev == current.st_dev && locked.st_ino == current.st_ino) {
            return file;
        }
    }
}

// A file that is not there is left to what comes next, but a link has to lead to one.
void requireRegular(const std::string& path, const std::string& realFile) {
    struct stat status = {};
    if (lstat(realFile.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        failWriting(path, S_ISLNK(status.st_mode) ? "expected a link that leads to a file"
                                                  : "expected a regular file");
    }
}

void replace(const std::string& realFile, const struct stat* original, const std::string& text) {
    const SignalPause pause;
    TemporaryFile file(realFile);
    file.write(text);
    if (original) {
        file.takeOwnerAndMode(*original);
    } else {
        file.takeDefaultMode();
    }
    file.putInPlace();
}

} // namespace

std::string readFile(const std::string& path) {
    return readAll(openForReading(path), path);
}

void changeFile(const std::string& path,
                const std::function<std::string(const std::string& text)>& change) {
    const std::string realFile = realPath(path);
    requireRegular(path, realFile); // opening anything else might wait for ever
    const Descriptor file = openAndLock(realFile);
    const std::string text = readAll(file, path);
    const std::string newText = change(text);
    if (newText != text) {
        struct stat status = {};
        fstat(file.get(), &status);
        replace(realFile, &status, newText);
    }
}

void writeFile(const std::string& path, const std::string& text) {
    const std::string realFile = realPath(path);
    struct stat status = {};
    requireRegular(path, realFile);
    const bool exists = stat(realFile.c_str(), &status) == 0;
    replace(realFile, exists ? &status : nullptr, text);
}

} // namespace vorn::tool
