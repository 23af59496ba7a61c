// The logging service and its client side.
//
// A plugin logs through g_vornLogFn under its own source name. The service pushes the threshold
// that applies to the source into g_vornLogLevel, so a message below it costs one comparison.
#pragma once

#include "../Framework.h"

namespace vorn::logging {

// Levels of messages, and thresholds: what is below a threshold is dropped.
constexpr int32_t kLevelVerbose = -2;
constexpr int32_t kLevelInfo = -1;
constexpr int32_t kLevelWarn = 0;
constexpr int32_t kLevelError = 1;
constexpr int32_t kLevelFatal = 2;

// Whether a source follows the service's own setting or has one of its own.
enum class LogSettingBehavior : uint32_t {
    eInherit = 0,  // the service's
    eOverride = 1, // its own
};

// Told the threshold that applies to a source: once at registration, then at every change. May be
// called from any thread.
using SetLogLevelFn = void (*)(int32_t level);

// Receives every message that passes its source's threshold. Records embed it as their first
// member; the service keeps only the pointer, and the caller removes it before the record goes.
// handleMessage runs on the logging thread, one message at a time for the whole service; it must
// not call the service. All strings are valid during the call only.
struct Logger {
    // Takes one message.
    void (*handleMessage)(Logger* self,
                          const char* source,
                          int32_t level,
                          const char* fileName,
                          int lineNumber,
                          const char* message);
};

// A logger that writes lines of text to a stream of the process. Owned by the service.
struct StandardLogger {
    Logger logger; // what addLogger and removeLogger take

    // Messages below the threshold are left out by this logger alone. Starts at kLevelVerbose.
    void (*setLevelThreshold)(StandardLogger* self, int32_t level);
    int32_t (*getLevelThreshold)(const StandardLogger* self);

    // Whether a line starts with the source file and the line number. Starts as false.
    void (*setFileNameIncluded)(StandardLogger* self, bool isIncluded);

    // The file descriptor that lines go to; the caller keeps it open. Starts as 2, standard error.
    void (*setFileDescriptor)(StandardLogger* self, int fileDescriptor);
};

// The service's table.
struct Logging {
    // Name and version, for acquiring the table.
    static constexpr InterfaceDesc getInterfaceDesc() {
        return {"vorn::logging::Logging", {0, 3}};
    }

    // Formats the message and hands it to every logger when level reaches the source's threshold.
    // lineNumber and fileName name the reporting statement. [any thread]
    void (*log)(const char* source,
                int32_t level,
                const char* fileName,
                int lineNumber,
                const char* format,
                ...) __attribute__((format(printf, 5, 6)));

    // The threshold of every source that inherits. Starts at kLevelWarn. [any thread]
    void (*setLevelThreshold)(int32_t level);
    int32_t (*getLevelThreshold)();

    // Switches every source that inherits on or off. Starts as on. [any thread]
    void (*setLogEnabled)(bool isEnabled);
    bool (*isLogEnabled)();

    // The same for one source, which need not be registered yet. eInherit drops the source's own
    // setting, and the last argument is ignored. [any thread]
    void (*setLevelThresholdForSource)(const char* source,
                                       LogSettingBehavior behavior,
                                       int32_t level);
    void (*setLogEnabledForSource)(const char* source, LogSettingBehavior behavior, bool isEnabled);

    // Back to the state after start: thresholds and switches at their first values, no own
    // setting of any source, the default logger alone. Registered sources stay. [any thread]
    void (*reset)();

    // Adds a logger after those already there, or takes it out. Adding one twice and removing an
    // unknown one do nothing. [any thread, never from inside a logger]
    void (*addLogger)(Logger* logger);
    void (*removeLogger)(Logger* logger);

    // The logger to standard error that the service starts with. The service's own.
    StandardLogger* (*getDefaultLogger)();

    // A further logger of that kind, not yet added; given back with destroyStandardLogger, which
    // also removes it. Null is ignored. Null when memory is exhausted.
    StandardLogger* (*createStandardLogger)();
    void (*destroyStandardLogger)(StandardLogger* logger);

    // Makes a source known; its threshold is pushed to the callback at once and whenever it
    // changes. A second registration replaces the callback. [any thread]
    void (*registerSource)(const char* source, SetLogLevelFn setLevelThreshold);

    // Forgets the source; the callback is not called any more when this has returned.
    void (*unregisterSource)(const char* source);
};

static_assert(sizeof(Logging) == 15 * sizeof(void (*)()), "15 slots");
static_assert(offsetof(Logging, registerSource) == 13 * sizeof(void (*)()), "slot 13");

// The log slot, as clients hold it.
using LogFn = void (*)(const char* source,
                       int32_t level,
                       const char* fileName,
                       int lineNumber,
                       const char* format,
                       ...);

} // namespace vorn::logging

extern VORN_HIDDEN vorn::logging::Logging* g_vornLogging; // the service, or null
extern VORN_HIDDEN vorn::logging::LogFn g_vornLogFn;      // its log function, or null
extern VORN_HIDDEN int32_t g_vornLogLevel;                // threshold of this client

// Logs a message of this client: tests function and threshold, then passes everything on.
// fileName is the path that the message carries; the line is that of the macro's use.
#define VORN_LOG_FROM(fileName, level, ...)                                                        \
    do {                                                                                           \
        if (g_vornLogFn && __atomic_load_n(&g_vornLogLevel, __ATOMIC_RELAXED) <= (level)) {        \
            g_vornLogFn(g_vornClientName, (level), (fileName), __LINE__, __VA_ARGS__);             \
        }                                                                                          \
    } while (0)

namespace vorn::logging {

// Acquires the service when there is one and registers this client as a source.
inline void registerLoggingForClient() {
    g_vornLogging = static_cast<Logging*>(g_vornFramework->tryAcquireInterfaceWithClient(
        g_vornClientName, Logging::getInterfaceDesc(), nullptr));
    if (g_vornLogging) {
        g_vornLogging->registerSource(g_vornClientName, [](int32_t level) {
            __atomic_store_n(&g_vornLogLevel, level, __ATOMIC_RELAXED);
        });
        g_vornLogFn = g_vornLogging->log;
    }
}

// Takes the source back; nothing is logged from here on.
inline void deregisterLoggingForClient() {
    if (g_vornLogging) {
        g_vornLogFn = nullptr;
        if (g_vornFramework) {
            g_vornLogging->unregisterSource(g_vornClientName);
        }
        g_vornLogging = nullptr;
    }
}

} // namespace vorn::logging
