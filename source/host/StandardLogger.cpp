// The standard logger. A line is put together first and, but for very long ones, written with one
// call, so that lines of several processes on one terminal stay whole. Nothing is allocated: that
// memory is exhausted can still be said.

#include "StandardLogger.h"

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <type_traits>
#include <unistd.h>

namespace vorn::host {

static_assert(std::is_standard_layout_v<StandardLogger> &&
                  offsetof(StandardLogger, contract) == 0 &&
                  offsetof(logging::StandardLogger, logger) == 0,
              "the contract's records and ours share one address");

// ---- helpers ------------------------------------------------------------------------------------

static StandardLogger& fromContract(logging::StandardLogger* self) {
    return *reinterpret_cast<StandardLogger*>(self);
}

static const char* levelName(int32_t level) {
    if (level <= logging::kLevelVerbose) {
        return "verbose";
    }
    if (level >= logging::kLevelFatal) {
        return "fatal";
    }
    static constexpr const char* kNames[] = {"info", "warning", "error"};
    return kNames[level - logging::kLevelInfo];
}

// Collects the parts of a line; what is left is written at the end of its life.
class LineWriter {
public:
    explicit LineWriter(int fileDescriptor) : m_fileDescriptor(fileDescriptor) {}
    ~LineWriter() {
        _flush();
    }
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;

    LineWriter& operator<<(std::string_view text) {
        while (!text.empty()) {
            if (m_size == sizeof(m_buffer)) {
                _flush();
            }
            const size_t count = text.copy(m_buffer + m_size, sizeof(m_buffer) - m_size);
            m_size += count;
            text.remove_prefix(count);
        }
        return *this;
    }

private:
    // Writes as much as the descriptor takes: a logger has nobody to complain to.
    void _flush() {
        size_t written = 0;
        while (written < m_size) {
            const ssize_t count = write(m_fileDescriptor, m_buffer + written, m_size - written);
            if (count > 0) {
                written += static_cast<size_t>(count);
            } else if (count == 0 || errno != EINTR) {
                break;
            }
        }
        m_size = 0;
    }

    int m_fileDescriptor;
    size_t m_size = 0; // of what the buffer holds
    char m_buffer[4096] = {};
};

// ---- operations ---------------------------------------------------------------------------------

static void handleMessageImpl(logging::Logger* self,
                              const char* source,
                              int32_t level,
                              const char* fileName,
                              int lineNumber,
                              const char* message) {
    const StandardLogger& logger = *reinterpret_cast<const StandardLogger*>(self);
    if (level < logger.levelThreshold) {
        return;
    }
    LineWriter line(logger.fileDescriptor);
    if (logger.isFileNameIncluded) {
        char lineText[16];
        std::snprintf(lineText, sizeof(lineText), ":%d: ", lineNumber);
        line << fileName << lineText;
    }
    line << source << ": " << levelName(level) << ": " << message << "\n";
}

static void setLevelThresholdImpl(logging::StandardLogger* self, int32_t level) {
    fromContract(self).levelThreshold = level;
}

static int32_t getLevelThresholdImpl(const logging::StandardLogger* self) {
    return reinterpret_cast<const StandardLogger*>(self)->levelThreshold;
}

static void setFileNameIncludedImpl(logging::StandardLogger* self, bool isIncluded) {
    fromContract(self).isFileNameIncluded = isIncluded;
}

static void setFileDescriptorImpl(logging::StandardLogger* self, int fileDescriptor) {
    fromContract(self).fileDescriptor = fileDescriptor;
}

StandardLogger::StandardLogger()
    : contract{.logger = {.handleMessage = handleMessageImpl},
               .setLevelThreshold = setLevelThresholdImpl,
               .getLevelThreshold = getLevelThresholdImpl,
               .setFileNameIncluded = setFileNameIncludedImpl,
               .setFileDescriptor = setFileDescriptorImpl} {
    reset();
}

void StandardLogger::reset() {
    levelThreshold = logging::kLevelVerbose;
    isFileNameIncluded = false;
    fileDescriptor = STDERR_FILENO;
}

} // namespace vorn::host
