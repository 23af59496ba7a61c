// The logging service, its table of slots, and the plugin that offers it.

#include "LoggingService.h"

#include "BuiltinPlugin.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <new>

namespace vorn::host {

// ---- state of the calling thread ----------------------------------------------------------------

static thread_local SourceTrial* t_trial = nullptr; // the innermost one
static thread_local bool t_isDelivering = false;    // loggers are running

// ---- helpers ------------------------------------------------------------------------------------

// Marks this thread as one that runs loggers.
struct DeliveryMark {
    DeliveryMark() {
        t_isDelivering = true;
    }
    ~DeliveryMark() {
        t_isDelivering = false;
    }
};

template <class Change>
void LoggingService::_change(Change change) {
    const std::lock_guard changeLock(m_changeMutex);
    std::unique_lock settingsLock(m_settingsMutex);
    change();
    _dropIdleSources();

    const auto tellNext = [&] {
        for (auto& [name, source] : m_sources) {
            const int32_t level = _thresholdOf(source);
            for (Registration& registration : source.registrations) {
                if (registration.toldLevel != level) {
                    registration.toldLevel = level;
                    const logging::SetLogLevelFn setLevelThreshold = registration.setLevelThreshold;
                    settingsLock.unlock();
                    setLevelThreshold(level);
                    settingsLock.lock();
                    return true; // the callback may have changed anything: start over
                }
            }
        }
        return false;
    };
    while (tellNext()) {
    }
}

void LoggingService::_dropIdleSources() {
    std::erase_if(m_sources, [](const auto& entry) {
        const Source& source = entry.second;
        return !source.ownThreshold && !source.ownSwitch && source.registrations.empty();
    });
}

int32_t LoggingService::_thresholdOf(const Source& source) const {
    return source.ownThreshold.value_or(m_threshold);
}

// ---- messages and loggers -----------------------------------------------------------------------

bool LoggingService::isWanted(const char* source, int32_t level) const {
    // A logger that logs would wait for itself.
    if (t_isDelivering) {
        return false;
    }
    const std::lock_guard lock(m_settingsMutex);
    const auto found = m_sources.find(source);
    if (found == m_sources.end()) {
        return m_isEnabled && level >= m_threshold;
    }
    return found->second.ownSwitch.value_or(m_isEnabled) && level >= _thresholdOf(found->second);
}

void LoggingService::deliver(
    const char* source, int32_t level, const char* fileName, int lineNumber, const char* message) {
    const std::lock_guard lock(m_deliveryMutex);
    const DeliveryMark delivering;
    for (logging::Logger* logger : m_loggers) {
        logger->handleMessage(logger, source, level, fileName, lineNumber, message);
    }
}

void LoggingService::addLogger(logging::Logger* logger) {
    const std::lock_guard lock(m_deliveryMutex);
    if (std::find(m_loggers.begin(), m_loggers.end(), logger) == m_loggers.end()) {
        m_loggers.push_back(logger);
    }
}

void LoggingService::removeLogger(logging::Logger* logger) {
    const std::lock_guard lock(m_deliveryMutex);
    std::erase(m_loggers, logger);
}

logging::StandardLogger* LoggingService::getDefaultLogger() {
    return &m_defaultLogger.contract;
}

logging::StandardLogger* LoggingService::createStandardLogger() {
    const std::lock_guard lock(m_deliveryMutex);
    try {
        return &m_createdLoggers.emplace_back(std::make_unique<StandardLogger>())->contract;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void LoggingService::destroyStandardLogger(logging::StandardLogger* logger) {
    const std::lock_guard lock(m_deliveryMutex);
    const auto isMeant = [&](const auto& created) { return &created->contract == logger; };
    const auto found = std::find_if(m_createdLoggers.begin(), m_createdLoggers.end(), isMeant);
    if (found != m_createdLoggers.end()) {
        std::erase(m_loggers, &logger->logger);
        m_createdLoggers.erase(found);
    }
}

// ---- thresholds and switches --------------------------------------------------------------------

void LoggingService::setLevelThreshold(int32_t level) {
    _change([&] { m_threshold = level; });
}

int32_t LoggingService::getLevelThreshold() const {
    const std::lock_guard lock(m_settingsMutex);
    return m_threshold;
}

void LoggingService::setLogEnabled(bool isEnabled) {
    _change([&] { m_isEnabled = isEnabled; });
}

bool LoggingService::isLogEnabled() const {
    const std::lock_guard lock(m_settingsMutex);
    return m_isEnabled;
}

void LoggingService::setOwnLevelThreshold(const std::string& source, std::optional<int32_t> level) {
    _change([&] { m_sources[source].ownThreshold = level; });
}

void LoggingService::setOwnLogEnabled(const std::string& source, std::optional<bool> isEnabled) {
    _change([&] { m_sources[source].ownSwitch = isEnabled; });
}

void LoggingService::reset() {
    {
        const std::lock_guard lock(m_deliveryMutex);
        m_defaultLogger.reset();
        m_loggers = {&m_defaultLogger.contract.logger};
    }
    _change([&] {
        m_threshold = logging::kLevelWarn;
        m_isEnabled = true;
        for (auto& [name, source] : m_sources) {
            source.ownThreshold.reset();
            source.ownSwitch.reset();
        }
    });
}

void LoggingService::forgetAll() {
    _change([&] { m_sources.clear(); });
    reset();
    const std::lock_guard lock(m_deliveryMutex);
    m_createdLoggers.clear();
}

// ---- sources ------------------------------------------------------------------------------------

void LoggingService::registerSource(const std::string& source,
                                    logging::SetLogLevelFn setLevelThreshold) {
    _change([&] {
        std::vector<Registration>& registrations = m_sources[source].registrations;
        std::erase_if(registrations, [](const auto& entry) { return entry.trial == t_trial; });
        registrations.push_back({t_trial, setLevelThreshold, std::nullopt});
    });
}

void LoggingService::unregisterSource(const std::string& source) {
    _change([&] {
        if (t_trial && std::count(t_trial->m_settledSources.begin(),
                                  t_trial->m_settledSources.end(), source) > 0) {
            return;
        }
        const auto found = m_sources.find(source);
        if (found == m_sources.end()) {
            return;
        }
        std::vector<Registration>& registrations = found->second.registrations;
        const auto removeOf = [&](const SourceTrial* trial) {
            return std::erase_if(registrations,
                                 [&](const auto& entry) { return entry.trial == trial; });
        };
        if (removeOf(t_trial) == 0) {
            removeOf(nullptr);
        }
    });
}

void LoggingService::_settle(SourceTrial& trial, bool isConfirmed) {
    _change([&] {
        for (auto& [name, source] : m_sources) {
            std::vector<Registration>& registrations = source.registrations;
            const auto isOnTrial = [&](const auto& entry) { return entry.trial == &trial; };
            const auto found = std::find_if(registrations.begin(), registrations.end(), isOnTrial);
            if (found == registrations.end()) {
                continue;
            }
            const Registration settled = *found;
            registrations.erase(found);
            if (isConfirmed) {
                std::erase_if(registrations, [](const auto& entry) { return !entry.trial; });
                registrations.push_back({nullptr, settled.setLevelThreshold, settled.toldLevel});
            }
            trial.m_settledSources.push_back(name);
        }
        trial.m_isSettled = true;
    });
}

SourceTrial::SourceTrial() : m_outer(t_trial) {
    t_trial = this;
}

SourceTrial::~SourceTrial() {
    if (!m_isSettled) {
        withdraw();
    }
    t_trial = m_outer;
}

void SourceTrial::withdraw() {
    LoggingService::instance()._settle(*this, false);
}

void SourceTrial::confirm() {
    LoggingService::instance()._settle(*this, true);
}

// ---- the table ----------------------------------------------------------------------------------

static void __attribute__((format(printf, 5, 6))) logImpl(const char* source,
                                                          int32_t level,
                                                          const char* fileName,
                                                          int lineNumber,
                                                          const char* format,
                                                          ...) {
    LoggingService& service = LoggingService::instance();
    const char* sourceName = source ? source : "";
    if (!format || !service.isWanted(sourceName, level)) {
        return;
    }
    char inPlace[1024] = "";
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(inPlace, sizeof(inPlace), format, arguments);
    va_end(arguments);

    // A long message is cut when the heap has no room for it.
    std::unique_ptr<char[]> onHeap;
    if (length >= static_cast<int>(sizeof(inPlace))) {
        const size_t size = static_cast<size_t>(length) + 1;
        onHeap.reset(new (std::nothrow) char[size]);
        if (onHeap) {
            va_start(arguments, format);
            std::vsnprintf(onHeap.get(), size, format, arguments);
            va_end(arguments);
        }
    }
    service.deliver(sourceName, level, fileName ? fileName : "", lineNumber,
                    onHeap ? onHeap.get() : inPlace);
}

static void setLevelThresholdImpl(int32_t level) {
    LoggingService::instance().setLevelThreshold(level);
}

static int32_t getLevelThresholdImpl() {
    return LoggingService::instance().getLevelThreshold();
}

static void setLogEnabledImpl(bool isEnabled) {
    LoggingService::instance().setLogEnabled(isEnabled);
}

static bool isLogEnabledImpl() {
    return LoggingService::instance().isLogEnabled();
}

template <class Value>
static std::optional<Value> ownSetting(logging::LogSettingBehavior behavior, Value value) {
    return behavior == logging::LogSettingBehavior::eOverride ? std::optional(value) : std::nullopt;
}

static void setLevelThresholdForSourceImpl(const char* source,
                                           logging::LogSettingBehavior behavior,
                                           int32_t level) {
    if (source) {
        LoggingService::instance().setOwnLevelThreshold(source, ownSetting(behavior, level));
    }
}

static void setLogEnabledForSourceImpl(const char* source,
                                       logging::LogSettingBehavior behavior,
                                       bool isEnabled) {
    if (source) {
        LoggingService::instance().setOwnLogEnabled(source, ownSetting(behavior, isEnabled));
    }
}

static void resetImpl() {
    LoggingService::instance().reset();
}

static void addLoggerImpl(logging::Logger* logger) {
    if (logger) {
        LoggingService::instance().addLogger(logger);
    }
}

static void removeLoggerImpl(logging::Logger* logger) {
    LoggingService::instance().removeLogger(logger);
}

static logging::StandardLogger* getDefaultLoggerImpl() {
    return LoggingService::instance().getDefaultLogger();
}

static logging::StandardLogger* createStandardLoggerImpl() {
    return LoggingService::instance().createStandardLogger();
}

static void destroyStandardLoggerImpl(logging::StandardLogger* logger) {
    LoggingService::instance().destroyStandardLogger(logger);
}

static void registerSourceImpl(const char* source, logging::SetLogLevelFn setLevelThreshold) {
    if (source && setLevelThreshold) {
        LoggingService::instance().registerSource(source, setLevelThreshold);
    }
}

static void unregisterSourceImpl(const char* source) {
    if (source) {
        LoggingService::instance().unregisterSource(source);
    }
}

static logging::Logging g_loggingTable = {
    .log = logImpl,
    .setLevelThreshold = setLevelThresholdImpl,
    .getLevelThreshold = getLevelThresholdImpl,
    .setLogEnabled = setLogEnabledImpl,
    .isLogEnabled = isLogEnabledImpl,
    .setLevelThresholdForSource = setLevelThresholdForSourceImpl,
    .setLogEnabledForSource = setLogEnabledForSourceImpl,
    .reset = resetImpl,
    .addLogger = addLoggerImpl,
    .removeLogger = removeLoggerImpl,
    .getDefaultLogger = getDefaultLoggerImpl,
    .createStandardLogger = createStandardLoggerImpl,
    .destroyStandardLogger = destroyStandardLoggerImpl,
    .registerSource = registerSourceImpl,
    .unregisterSource = unregisterSourceImpl,
};

// ---- the service and its plugin -----------------------------------------------------------------

LoggingService& LoggingService::instance() {
    static LoggingService& service = *new LoggingService;
    return service;
}

logging::Logging& LoggingService::table() {
    return g_loggingTable;
}

static constexpr PluginImplDesc kLoggingPluginImpl = {
    .name = "vorn.logging.plugin",
    .description = "Logging to standard error and to loggers of the application",
    .author = "Vorn",
    .hotReload = PluginHotReload::eDisabled,
    .build = VORN_BUILD_INFO,
};

const PluginRegistrationDesc& LoggingService::plugin() {
    static constexpr PluginRegistrationDesc kPlugin =
        builtinPlugin<g_loggingTable, kLoggingPluginImpl>();
    return kPlugin;
}

void logFromHost(int32_t level, const char* fileName, int lineNumber, const std::string& message) {
    g_loggingTable.log(kHostSourceName, level, fileName, lineNumber, "%s", message.c_str());
}

} // namespace vorn::host
