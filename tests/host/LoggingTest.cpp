// The logging service: thresholds and switches per source, what is pushed to sources, loggers.

#include "HostFixture.h"

#include <unistd.h>

using namespace vorn;
using namespace vorn::logging;

static constexpr LogSettingBehavior kOwn = LogSettingBehavior::eOverride,
                                    kInherited = LogSettingBehavior::eInherit;
static Logging* g_logging;

class LoggingSources : public HostFixture {
protected:
    LoggingSources() {
        g_logging = &logging;
    }

    // The levels of those that arrive, of one message each.
    std::string heard(const char* source) {
        for (int32_t level = kLevelVerbose; level <= kLevelFatal; ++level) {
            logging.log(source, level, nullptr, 1, "%d", level);
        }
        std::string levels;
        for (const std::string& line : takeLines()) {
            levels += line.substr(line.find(' '));
        }
        return levels;
    }

    Logging& logging = host.logging();
};

TEST_F(LoggingSources, ASourcesOwnSettingWinsUntilItInheritsAgain) {
    EXPECT_EQ(heard("a"), " 0 1 2") << "warnings, to begin with";
    logging.setLevelThresholdForSource("a", kOwn, kLevelVerbose);
    logging.setLevelThresholdForSource(nullptr, kOwn, kLevelVerbose);
    logging.setLevelThreshold(kLevelError);
    EXPECT_EQ(heard("a") + heard(nullptr), " -2 -1 0 1 2 1 2");
    logging.setLevelThresholdForSource("a", kInherited, kLevelVerbose);
    EXPECT_EQ(heard("a"), " 1 2");
    logging.setLogEnabled(false);
    logging.setLogEnabledForSource("a", kOwn, true);
    logging.setLogEnabledForSource(nullptr, kOwn, true);
    EXPECT_EQ(heard("a") + heard(nullptr), " 1 2");
    logging.setLogEnabledForSource("a", kInherited, true);
    EXPECT_EQ(heard("a"), "");
}

TEST_F(LoggingSources, AThresholdIsToldAtRegistrationAndWhenItChangesAlsoByWhoIsTold) {
    logging.setLevelThresholdForSource("b", kOwn, kLevelError);
    logging.registerSource("a", [](int32_t level) {
        g_logging->log("a", kLevelFatal, "", 0, "%d", level);
        if (level == kLevelVerbose) {
            g_logging->setLevelThreshold(kLevelInfo);
        }
    });
    logging.registerSource(
        "b", [](int32_t level) { g_logging->log("b", kLevelFatal, "", 0, "%d", level); });
    logging.registerSource("b", nullptr);
    logging.registerSource(nullptr, [](int32_t) {});
    logging.setLevelThreshold(kLevelVerbose);
    logging.setLevelThreshold(kLevelInfo);
    logging.setLevelThresholdForSource("b", kInherited, 0);
    EXPECT_EQ(takeLines(), (Lines{"a: 0", "b: 1", "a: -2", "a: -1", "b: -1"}));
    logging.registerSource(
        "b", [](int32_t level) { g_logging->log("new b", kLevelFatal, "", 0, "%d", level); });
    for (const char* source : {"a", "nobody", static_cast<const char*>(nullptr)}) {
        logging.unregisterSource(source);
    }
    logging.setLevelThresholdForSource("b", kOwn, kLevelFatal);
    EXPECT_EQ(takeLines(), (Lines{"new b: -1", "new b: 2"}));
    logging.setLogEnabledForSource("b", kOwn, false);
    EXPECT_EQ(heard("b"), "");
}

TEST_F(LoggingSources, LoggersAreCalledOnceAndOnlyWhileTheyAreAdded) {
    RecordingLogger second;
    for (Logger* logger : {&second.logger, &second.logger, static_cast<Logger*>(nullptr)}) {
        logging.addLogger(logger);
    }
    EXPECT_EQ(heard("a"), " 0 1 2");
    EXPECT_EQ(second.lines, (Lines{"a: 0", "a: 1", "a: 2"}));
    Logger talkative = {[](auto...) { g_logging->log("a", kLevelFatal, "", 0, "is dropped"); }};
    logging.addLogger(&talkative);
    logging.removeLogger(&log.logger);
    const LogFn logWithoutFormat = logging.log; // which the compiler would not let pass
    logWithoutFormat("a", kLevelFatal, "", 0, nullptr);
    EXPECT_EQ(heard("a"), "");
    EXPECT_EQ(second.lines.size(), 6u);

    logging.setLevelThresholdForSource("a", kOwn, kLevelFatal);
    logging.setLogEnabled(false);
    logging.reset();
    testing::internal::CaptureStderr();
    heard("a");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a: warning: 0\na: error: 1\na: fatal: 2\n");
    EXPECT_EQ(second.lines.size(), 6u) << "the default logger alone";
}

TEST_F(LoggingSources, StandardLoggerWritesLinesToItsDescriptorAboveItsOwnThreshold) {
    testing::internal::CaptureStdout();
    StandardLogger* standard = logging.createStandardLogger();
    standard->setFileDescriptor(standard, STDOUT_FILENO);
    logging.addLogger(&standard->logger);
    logging.setLevelThreshold(kLevelVerbose);
    heard("a");
    standard->setFileNameIncluded(standard, true);
    standard->setLevelThreshold(standard, kLevelFatal);
    const std::string longText(5000, 'x');
    logging.log("a", kLevelFatal, "file.cpp", 12, "%s", longText.c_str());
    standard->setFileDescriptor(standard, -1);
    heard("a"); // nobody to complain to
    logging.destroyStandardLogger(standard);
    heard("a");
    logging.destroyStandardLogger(logging.getDefaultLogger()); // not ours to destroy

    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "a: verbose: -2\na: info: -1\na: warning: 0\na: error: 1\na: fatal: 2\n"
              "file.cpp:12: a: fatal: " +
                  longText + "\n");
}

TEST_F(LoggingSources, ThreadsLogOneMessageAtATimeWhileThresholdsChange) {
    runOnThreads(4, [&](int) {
        for (int round = 0; round < 200; ++round) {
            logging.log("a", kLevelError, "", 0, "hello");
            logging.setLevelThreshold(round % 2 ? kLevelVerbose : kLevelInfo);
            logging.registerSource("passing", [](int32_t) {});
            logging.unregisterSource("passing");
        }
    });
    EXPECT_EQ(takeLines(), Lines(800, "a: hello"));
}
