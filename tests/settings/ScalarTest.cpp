// Values of the four types by path and by index, and string buffers.
#include "support/Store.h"

using namespace foreign;

#define READ(...) [](const ISettings& s, const char* p) { return text(s.__VA_ARGS__); }
#define WRITE(...) [](const ISettings& s, const char* p) { s.__VA_ARGS__; }

struct ScalarCase {
    const char *value, *neutral;
    const char* report; // what a read says when it is refused, before the path
    std::string (*read)(const ISettings& s, const char* p);
    std::string (*readAt2)(const ISettings& s, const char* p);
    void (*write)(const ISettings& s, const char* p);
    void (*writeAt2)(const ISettings& s, const char* p);
};

const ScalarCase kScalarCases[] = { // in the order of the item types
    {"true", "false", "-2 getAsBoolInternal: node type mismatch: boolean read from ",
     READ(getAsBool(p)), READ(getAsBoolAt(p, 2)), WRITE(setBool(p, true)),
     WRITE(setBoolAt(p, 2, true))},
    {"-5000000000", "0", "-2 getAsInt64Internal: node type mismatch: integer read from ",
     READ(getAsInt64(p)), READ(getAsInt64At(p, 2)), WRITE(setInt64(p, -5000000000)),
     WRITE(setInt64At(p, 2, -5000000000))},
    {"1.5", "0", "-2 getAsFloat64Internal: node type mismatch: float read from ",
     READ(getAsFloat64(p)), READ(getAsFloat64At(p, 2)), WRITE(setFloat64(p, 1.5)),
     WRITE(setFloat64At(p, 2, 1.5))},
    {"x", "null", "-2 getStringRawInternal: node type mismatch: string read from ",
     READ(getStringBuffer(p)), READ(getStringBufferAt(p, 2)), WRITE(setString(p, "x")),
     WRITE(setStringAt(p, 2, "x"))}};

VORN_OVER_BOTH_SERVICES(Scalars);
class Failing : public RecordedStore {};

TEST_P(Scalars, EveryWriteDecidesValueAndTypeAndIsTold) {
    onNodes({"/a/v", "/a/2"});
    onTree("/a", "T");
    for (const ScalarCase& row : kScalarCases) {
        row.write(*settings, "/a/v");
        row.write(*settings, "a/v");
        row.writeAt2(*settings, "/a");
        EXPECT_EQ(takeEvents(), "N /a/v, T /a:/a/v, N /a/v, T /a:/a/v, N /a/2, T /a:/a/2");
        EXPECT_EQ(row.read(*settings, "/a/v") + " " + row.readAt2(*settings, "a"),
                  row.value + std::string(" ") + row.value);
        EXPECT_EQ(settings->getItemType("/a/v"), &row - kScalarCases);
    }
    EXPECT_EQ(takeLog(), "");
}

TEST_P(Scalars, RefusedReadIsNeutralAndReportedWithThePathAsWritten) {
    settings->setDictionary("/d/2");
    for (const ScalarCase& row : kScalarCases) {
        for (const std::string path : {"/none", "none", "//none", "/d"}) {
            EXPECT_EQ(row.read(*settings, path.c_str()), row.neutral);
            EXPECT_EQ(takeLog(), row.report + path);
        }
        for (const std::string path : {"/d", "d", "/d/2"}) { // a dictionary, and nothing
            EXPECT_EQ(row.readAt2(*settings, path.c_str()), row.neutral);
            EXPECT_EQ(takeLog(), row.report + path + "/2");
        }
        EXPECT_EQ(row.readAt2(*settings, "/none"), row.neutral);
    }
    EXPECT_EQ(settings->getItemType("/none"), eCount);
    EXPECT_FALSE(settings->isAccessibleAs(eInt, "/none"));
    EXPECT_EQ(takeLog(), "") << "type queries and elements of nothing are silent";
    settings->setInt64("/n", 1);
    EXPECT_EQ(settings->getStringBuffer("/n"), nullptr) << "strings are read unconverted";
}

TEST_P(Scalars, ElementsAreChildrenNamedInPlainDecimal) {
    settings->setInt64At("l", SIZE_MAX, 5);
    settings->setInt64At("", 0, 3);
    settings->setInt64At("/", 1, 4);
    settings->setInt64("/01", 6);
    EXPECT_EQ(dump(), "{l: {18446744073709551615: 5}, 0: 3, 1: 4, 01: 6}");
    EXPECT_EQ(settings->getAsInt64At("/l", SIZE_MAX), 5);
    EXPECT_EQ(settings->getAsInt64At("/", 1), 4);
}

TEST_P(Scalars, BuffersAreTakenBackOnceAndAlsoAfterShutDown) {
    settings->setString("/s", "lent");
    const char* buffer = settings->createStringBufferFromItemValue("/s");
    settings->setString("/s", "later");
    EXPECT_STREQ(buffer, "lent");
    for (const char* given : {buffer, buffer, settings->getStringBuffer("/s"), "foreign"}) {
        settings->destroyStringBuffer(given);
    }
    EXPECT_STREQ(settings->getStringBuffer("/s"), "later");
    EXPECT_EQ(settings->createStringBufferFromItemValue("/none"), nullptr);
    EXPECT_EQ(settings->createStringBufferFromItemValueAt("/none", 0), nullptr);
    EXPECT_EQ(settings->createStringBufferFromItemValueAt("/s", 0), nullptr);
    EXPECT_EQ(takeLog(), "");
    buffer = settings->createStringBufferFromItemValue("/s");
    EXPECT_EQ(settings->createStringBufferFromItemValue(""), nullptr) << "no text form";
    shutdown();
    takeCalls();
    for (int round = 0; round < 2; ++round) {
        settings->destroyStringBuffer(buffer);
        settings->destroyStringBuffer(nullptr); // null was handed out, too
    }
    EXPECT_EQ(takeCalls(),
              GetParam() ? "" : "destroyStringBuffer('later')\ndestroyStringBuffer(null)");
}

TEST_F(Failing, CreationStoresAndTellsNothing) {
    onNodes({"/a", "/a/2", ""}); // the last would hear of null
    g_recorder.isCreateFailing = true;
    for (const ScalarCase& row : kScalarCases) {
        row.write(*settings, "/a");
        row.writeAt2(*settings, "/a");
    }
    settings->setDictionary("/a");
    settings->setInt64Array("/a", nullptr, 0);
    settings->setStringArray("/a", nullptr, 0);
    EXPECT_EQ(settings->createDictionaryFromSettings(""), nullptr);
    Transaction* transaction = settings->createTransaction();
    settings->setInt64Async(transaction, "/a", 1);
    settings->commitTransaction(transaction);
    settings->destroyTransaction(transaction);
    EXPECT_EQ(dump() + takeEvents(), "{}"); // a null item stops the recording dictionary
}
