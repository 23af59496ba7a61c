// The logging service: thresholds and switches per source, what is pushed to sources, loggers.

#include "HostFixture.h"

#include <fcntl.h>
#include <unistd.h>

using namespace vorn;
using namespace vorn::logging;

static std::string g_told; // the levels that sources were told
static Logging* g_logging;

class LoggingSources : public HostFixture {
protected:
    LoggingSources() {
        g_told.clear();
        g_logging = &logging;
    }

    void say(const char* source, int32_t level) {
        logging.log(source, level, "file.cpp", 1, "level %d", level);
    }
    void sayAll(const char* source) {
        for (int32_t level = kLevelVerbose; level <= kLevelError; ++level) {
            say(source, level);
        }
    }

    Logging& logging = host.logging();
};

TEST_F(LoggingSources, ASourcesOwnSettingWinsUntilItInheritsAgain) {
    sayAll("a");
    EXPECT_EQ(takeLines(), (Lines{"a: level 0", "a: level 1"})) << "warnings, to begin with";
    logging.setLevelThresholdForSource("a", LogSettingBehavior::eOverride, kLevelVerbose);
    logging.setLevelThreshold(kLevelError);
    sayAll("a");
    sayAll("b");
    EXPECT_EQ(takeLines(),
              (Lines{"a: level -2", "a: level -1", "a: level 0", "a: level 1", "b: level 1"}));
    logging.setLevelThresholdForSource("a", LogSettingBehavior::eInherit, kLevelVerbose);
    sayAll("a");
    EXPECT_EQ(takeLines(), (Lines{"a: level 1"}));

    logging.setLogEnabled(false);
    logging.setLogEnabledForSource("a", LogSettingBehavior::eOverride, true);
    say("a", kLevelError);
    say("b", kLevelError);
    EXPECT_EQ(takeLines(), (Lines{"a: level 1"}));
    logging.setLogEnabledForSource("a", LogSettingBehavior::eInherit, true);
    say("a", kLevelError);
    EXPECT_EQ(takeLines(), Lines{});
}

TEST_F(LoggingSources, NullArgumentsAreIgnoredOrEmpty) {
    logging.registerSource(nullptr, [](int32_t) {});
    logging.registerSource("a", nullptr);
    logging.unregisterSource(nullptr);
    logging.unregisterSource("nobody");
    logging.setLevelThresholdForSource(nullptr, LogSettingBehavior::eOverride, kLevelVerbose);
    logging.setLogEnabledForSource(nullptr, LogSettingBehavior::eOverride, false);
    logging.addLogger(nullptr);
    logging.removeLogger(nullptr);
    logging.destroyStandardLogger(nullptr);
    const LogFn log = logging.log;
    log("a", kLevelError, "file.cpp", 1, nullptr);
    logging.log(nullptr, kLevelError, nullptr, 1, "from nobody");
    EXPECT_EQ(takeLines(), (Lines{": from nobody"}));

    logging.registerSource("outside", [](int32_t) {});
    PluginRegistrationDesc hasty = InlinePlugin<1>::desc();
    hasty.onPluginRegisterFn = [](Framework*, PluginRegistryEntry*) {
        g_logging->registerSource("inside", [](int32_t) {});
        g_logging->unregisterSource("inside");
        g_logging->unregisterSource("outside");
    };
    EXPECT_FALSE(framework.registerPlugin("test", hasty));
    takeLines();

    logging.registerSource("told", [](int32_t) {});
    logging.setLevelThresholdForSource("told", LogSettingBehavior::eOverride, kLevelError);
    say("told", kLevelWarn);
    logging.setLogEnabledForSource("told", LogSettingBehavior::eOverride, false);
    say("told", kLevelError);
    EXPECT_EQ(takeLines(), Lines{});
}

TEST_F(LoggingSources, AThresholdIsToldAtRegistrationAndWhenItChanges) {
    logging.setLevelThresholdForSource("b", LogSettingBehavior::eOverride, kLevelError);
    logging.registerSource("a", [](int32_t level) { g_told += " a" + std::to_string(level); });
    logging.registerSource("b", [](int32_t level) { g_told += " b" + std::to_string(level); });
    logging.setLevelThreshold(kLevelInfo);
    logging.setLevelThreshold(kLevelInfo);
    logging.setLevelThresholdForSource("b", LogSettingBehavior::eInherit, 0);
    EXPECT_EQ(g_told, " a0 b1 a-1 b-1");

    logging.registerSource("b", [](int32_t level) { g_told += " B" + std::to_string(level); });
    logging.unregisterSource("a");
    logging.reset();
    EXPECT_EQ(g_told, " a0 b1 a-1 b-1 B-1 B0")
        << "a second one replaces the callback, reset keeps it";
}

// A callback may use the service; what it changes is told too, and the last value holds.
TEST_F(LoggingSources, ACallbackMayCallTheService) {
    logging.registerSource("a", [](int32_t level) {
        g_logging->log("a", kLevelError, "", 0, "told %d", level);
        if (level == kLevelVerbose) {
            g_logging->setLevelThreshold(kLevelInfo);
        }
    });
    logging.setLevelThreshold(kLevelVerbose);
    EXPECT_EQ(logging.getLevelThreshold(), kLevelInfo);
    EXPECT_EQ(takeLines(), (Lines{"a: told 0", "a: told -2", "a: told -1"}));
}

TEST_F(LoggingSources, LoggersAreCalledInOrderAndOnlyWhileTheyAreAdded) {
    RecordingLogger second;
    logging.addLogger(&second.logger);
    logging.addLogger(&second.logger);
    const std::string longText(100'000, 'x'); // more than any buffer on the stack
    logging.log("a", kLevelError, "file.cpp", 1, "%s%d", longText.c_str(), 1);
    EXPECT_EQ(second.lines, (Lines{"a: " + longText + "1"}));
    EXPECT_EQ(takeLines(), second.lines);

    logging.removeLogger(&log.logger);
    logging.removeLogger(&log.logger);
    say("a", kLevelError);
    EXPECT_EQ(log.lines, Lines{});
    EXPECT_EQ(second.lines.size(), 2u);

    logging.reset();
    testing::internal::CaptureStderr();
    say("a", kLevelError);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a: error: level 1\n");
    EXPECT_EQ(second.lines.size(), 2u) << "the default logger alone";
}

TEST_F(LoggingSources, AMessageOfALoggerIsDropped) {
    Logger talkative = {[](auto...) {
        g_told += "once";
        g_logging->log("a", kLevelError, "", 0, "again");
    }};
    logging.addLogger(&talkative);
    say("a", kLevelError);
    logging.removeLogger(&talkative);
    EXPECT_EQ(g_told, "once");
    EXPECT_EQ(takeLines(), (Lines{"a: level 1"}));
}

TEST_F(LoggingSources, StandardLoggerWritesLinesToItsDescriptorAboveItsOwnThreshold) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    StandardLogger* standard = logging.createStandardLogger();
    standard->setFileDescriptor(standard, ends[1]);
    logging.addLogger(&standard->logger);
    logging.setLevelThreshold(kLevelVerbose);
    for (const int32_t level : {kLevelVerbose, kLevelInfo, kLevelWarn, kLevelFatal}) {
        say("a", level);
    }
    standard->setFileNameIncluded(standard, true);
    standard->setLevelThreshold(standard, kLevelError);
    say("a", kLevelWarn);
    const std::string longText(5000, 'x');
    logging.log("a", kLevelError, "file.cpp", 12, "%s", longText.c_str());
    standard->setFileDescriptor(standard, -1);
    say("a", kLevelError); // nobody to complain to
    logging.destroyStandardLogger(standard);
    say("a", kLevelError);
    logging.destroyStandardLogger(logging.getDefaultLogger()); // not ours to destroy

    char written[10'000];
    const ssize_t size = read(ends[0], written, sizeof(written));
    ASSERT_GT(size, 0);
    EXPECT_EQ(std::string(written, size),
              "a: verbose: level -2\na: info: level -1\na: warning: level 0\na: fatal: level 2\n"
              "file.cpp:12: a: error: " +
                  longText + "\n");
    close(ends[0]);
    close(ends[1]);
}

TEST_F(LoggingSources, ThreadsLogOneMessageAtATimeWhileThresholdsChange) {
    load("base");
    const TestInterface* base = acquire("test::Base");
    runOnThreads(5, [&](int i) {
        for (int round = 0; round < 200; ++round) {
            if (i > 0) {
                base->warn("hello");
                continue;
            }
            logging.setLevelThreshold(round % 2 ? kLevelVerbose : kLevelInfo);
            logging.registerSource("passing", [](int32_t) {});
            logging.unregisterSource("passing");
        }
    });
    EXPECT_EQ(takeLines(), Lines(800, "test.base: hello"));
    EXPECT_EQ(base->getLogLevel(), kLevelVerbose);
}
