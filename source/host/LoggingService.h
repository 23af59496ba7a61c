// The logging service: which messages pass, who receives them, and who is told the thresholds.
//
// Threads: everything may be called from any thread. The locks, in the order they are taken in:
//
//   m_changeMutex    from a change of thresholds or sources to the end of the callbacks that it
//                    causes, so that the last value told is the one that holds and nobody is told
//                    after unregistering. Recursive: a callback may call the service.
//   m_settingsMutex  thresholds and sources. Never held while code of others runs.
//   m_deliveryMutex  the loggers. Held while they run: one message at a time.
//
// The service is never destroyed: plugins take leave of it from their static destructors, some of
// them as late as the end of the process.
#pragma once

#include "StandardLogger.h"
#include "vorn/Framework.h"
#include "vorn/logging/Log.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vorn::host {

// The source name of the host's own messages.
constexpr const char* kHostSourceName = "vorn.host";

// Keeps apart two libraries that log under one name while one of them is on trial: a plugin
// registers its source before the host knows its name and can refuse it, and unregisters it, by
// name alone, when its library is closed.
//
// From construction to destruction, what this thread registers is provisional and stands beside
// what was registered before. Exactly one of withdraw and confirm settles it; from then on this
// thread's attempts to unregister those sources are ignored, because they come from the library
// that lost. Nests.
class SourceTrial {
public:
    SourceTrial();
    ~SourceTrial(); // withdraws what was not settled
    SourceTrial(const SourceTrial&) = delete;
    SourceTrial& operator=(const SourceTrial&) = delete;

    void withdraw(); // drops what was registered on trial
    void confirm();  // puts it in the place of what was registered before

private:
    friend class LoggingService;

    SourceTrial* m_outer;
    bool m_isSettled = false;
    std::vector<std::string> m_settledSources;
};

class LoggingService {
public:
    // The one service of the process, and its table.
    static LoggingService& instance();
    static logging::Logging& table();
    static const PluginRegistrationDesc& plugin();

    // Whether a message is for anybody, asked before its text is put together; and its delivery.
    bool isWanted(const char* source, int32_t level) const;
    void deliver(const char* source,
                 int32_t level,
                 const char* fileName,
                 int lineNumber,
                 const char* message);

    void setLevelThreshold(int32_t level);
    int32_t getLevelThreshold() const;
    void setLogEnabled(bool isEnabled);
    bool isLogEnabled() const;
    void setOwnLevelThreshold(const std::string& source, std::optional<int32_t> level);
    void setOwnLogEnabled(const std::string& source, std::optional<bool> isEnabled);
    void reset();

    // Everything back to how the process began: reset, and no sources and no loggers of others.
    void forgetAll();

    void addLogger(logging::Logger* logger);
    void removeLogger(logging::Logger* logger);
    logging::StandardLogger* getDefaultLogger();
    logging::StandardLogger* createStandardLogger();
    void destroyStandardLogger(logging::StandardLogger* logger);

    void registerSource(const std::string& source, logging::SetLogLevelFn setLevelThreshold);
    void unregisterSource(const std::string& source);

private:
    friend class SourceTrial;

    struct Registration {
        const SourceTrial* trial; // null for the one that is not provisional
        logging::SetLogLevelFn setLevelThreshold;
        std::optional<int32_t> toldLevel;
    };

    struct Source {
        std::optional<int32_t> ownThreshold;
        std::optional<bool> ownSwitch;
        std::vector<Registration> registrations; // at most one per trial and one beside them
    };

    // Changes settings and sources under the locks, then tells everybody whose threshold is not
    // the one told last.
    template <class Change>
    void _change(Change change);
    void _dropIdleSources();
    int32_t _thresholdOf(const Source& source) const;
    void _settle(SourceTrial& trial, bool isConfirmed);

    std::recursive_mutex m_changeMutex;

    mutable std::mutex m_settingsMutex;
    int32_t m_threshold = logging::kLevelWarn;
    bool m_isEnabled = true;
    std::map<std::string, Source, std::less<>> m_sources;

    std::mutex m_deliveryMutex;
    StandardLogger m_defaultLogger;
    std::vector<std::unique_ptr<StandardLogger>> m_createdLoggers;
    std::vector<logging::Logger*> m_loggers = {&m_defaultLogger.contract.logger};
};

// Logs a message of the host itself.
void logFromHost(int32_t level, const char* fileName, int lineNumber, const std::string& message);

} // namespace vorn::host
