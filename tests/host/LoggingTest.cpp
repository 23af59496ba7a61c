// The logging service: thresholds and switches per source, what is pushed to sources, loggers.

#include "HostFixture.h"

#include <fcntl.h>
#include <unistd.h>

using namespace vorn;
using namespace vorn::logging;

static constexpr LogSettingBehavior kOwn = LogSettingBehavior::eOverride,
                                    kInherited = LogSettingBehavior::eInherit;
static std::string g_told; // the levels that sources were told
static Logging* g_logging;

class LoggingSources : public HostFixture {
protected:
    LoggingSources() {
        g_told.clear();
        g_logging = &logging;
    }

    // The levels of those that arrive, of one message each.
    std::string heard(const char* source) {
        for (int32_t level = kLevelVerbose; level <= kLevelFatal; ++level) {
            logging.log(source, level, "file.cpp", 1, "%d", level);
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
    logging.setLevelThreshold(kLevelError);
    EXPECT_EQ(heard("a") + heard("b"), " -2 -1 0 1 2 1 2");
    logging.setLevelThresholdForSource("a", kInherited, kLevelVerbose);
    EXPECT_EQ(heard("a"), " 1 2");
    logging.setLogEnabled(false);
    logging.setLogEnabledForSource("a", kOwn, true);
    EXPECT_EQ(heard("a") + heard("b"), " 1 2");
    logging.setLogEnabledForSource("a", kInherited, true);
    EXPECT_EQ(heard("a"), "");
}

TEST_F(LoggingSources, NullArgumentsAreIgnoredOrEmpty) {
    logging.registerSource(nullptr, [](int32_t) {});
    logging.registerSource("a", nullptr);
    logging.unregisterSource(nullptr);
    logging.unregisterSource("nobody");
    logging.setLevelThresholdForSource(nullptr, kOwn, kLevelVerbose);
    logging.setLogEnabledForSource(nullptr, kOwn, false);
    logging.addLogger(nullptr);
    logging.removeLogger(nullptr);
    logging.destroyStandardLogger(nullptr);
    const LogFn log = logging.log; // whose format the compiler does not see
    log("a", kLevelError, "file.cpp", 1, nullptr);
    logging.log(nullptr, kLevelError, nullptr, 1, "from nobody");
    EXPECT_EQ(takeLines(), (Lines{": from nobody"}));
}

TEST_F(LoggingSources, AThresholdIsToldAtRegistrationAndWhenItChanges) {
    logging.setLevelThresholdForSource("b", kOwn, kLevelError);
    logging.registerSource("a", [](int32_t level) { g_told += " a" + std::to_string(level); });
    logging.registerSource("b", [](int32_t level) { g_told += " b" + std::to_string(level); });
    logging.setLevelThreshold(kLevelInfo);
    logging.setLevelThreshold(kLevelInfo);
    logging.setLevelThresholdForSource("b", kInherited, 0);
    EXPECT_EQ(g_told, " a0 b1 a-1 b-1");
    logging.registerSource("b", [](int32_t level) { g_told += " B" + std::to_string(level); });
    logging.unregisterSource("a");
    logging.setLogEnabledForSource("b", kOwn, false);
    EXPECT_EQ(heard("b"), "");
    logging.reset();
    EXPECT_EQ(g_told, " a0 b1 a-1 b-1 B-1 B0")
        << "a second one replaces the callback, reset keeps it";
}

TEST_F(LoggingSources, APluginUnregistersItsOwnSourceBeforeThatOfOthers) {
    logging.registerSource("kept", [](int32_t) { g_told += " kept"; });
    logging.registerSource("gone", [](int32_t) { g_told += " gone"; });
    PluginRegistrationDesc hasty = InlinePlugin<1>::desc();
    hasty.onPluginRegisterFn = [](Framework*, PluginRegistryEntry*) {
        g_logging->registerSource("kept", [](int32_t) { g_told += " wrong"; });
        g_logging->unregisterSource("kept");
        g_logging->unregisterSource("gone");
        g_told.clear();
    };
    EXPECT_FALSE(framework.registerPlugin("test", hasty));
    logging.setLevelThreshold(kLevelError);
    EXPECT_EQ(g_told, " kept");
}

TEST_F(LoggingSources, ACallbackMayCallTheServiceAndALoggersMessageIsDropped) {
    logging.registerSource("a", [](int32_t level) {
        g_logging->log("a", kLevelError, "", 0, "told %d", level);
        if (level == kLevelVerbose) {
            g_logging->setLevelThreshold(kLevelInfo);
        }
    });
    logging.setLevelThreshold(kLevelVerbose);
    EXPECT_EQ(logging.getLevelThreshold(), kLevelInfo);
    EXPECT_EQ(takeLines(), (Lines{"a: told 0", "a: told -2", "a: told -1"}));

    Logger talkative = {[](auto...) {
        g_told += "once";
        g_logging->log("a", kLevelError, "", 0, "again");
    }};
    logging.addLogger(&talkative);
    logging.log("b", kLevelError, "", 0, "text");
    EXPECT_EQ(g_told, "once");
    EXPECT_EQ(takeLines(), (Lines{"b: text"}));
    logging.removeLogger(&talkative);
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
    EXPECT_EQ(heard("a"), "");
    EXPECT_EQ(second.lines.size(), 4u);

    logging.reset();
    testing::internal::CaptureStderr();
    heard("a");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "a: warning: 0\na: error: 1\na: fatal: 2\n");
    EXPECT_EQ(second.lines.size(), 4u) << "the default logger alone";
}

TEST_F(LoggingSources, StandardLoggerWritesLinesToItsDescriptorAboveItsOwnThreshold) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    StandardLogger* standard = logging.createStandardLogger();
    standard->setFileDescriptor(standard, ends[1]);
    logging.addLogger(&standard->logger);
    logging.setLevelThreshold(kLevelVerbose);
    heard("a");
    standard->setFileNameIncluded(standard, true);
    standard->setLevelThreshold(standard, kLevelFatal);
    heard("a");
    const std::string longText(5000, 'x');
    logging.log("a", kLevelFatal, "file.cpp", 12, "%s", longText.c_str());
    standard->setFileDescriptor(standard, -1);
    heard("a"); // nobody to complain to
    logging.destroyStandardLogger(standard);
    heard("a");
    logging.destroyStandardLogger(logging.getDefaultLogger()); // not ours to destroy

    std::string written(10'000, '\0');
    written.resize(read(ends[0], written.data(), written.size()));
    EXPECT_EQ(written, "a: verbose: -2\na: info: -1\na: warning: 0\na: error: 1\na: fatal: 2\n"
                       "file.cpp:1: a: fatal: 2\nfile.cpp:12: a: fatal: " +
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
