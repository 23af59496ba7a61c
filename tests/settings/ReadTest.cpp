// What refused reads answer and report, and string buffers.
#include "support/Store.h"

#include <cstring>
#include <sys/mman.h>

using namespace foreign;

template <class T>
std::string readArray(void (*read)(const char*, T*, size_t), const char* path) {
    T places[2] = {};
    read(path, places, 2);
    return show(places[0]) + " " + show(places[1]);
}

VORN_OVER_BOTH_SERVICES(Reads);

TEST_P(Reads, OfWhatIsMissingOrDoesNotConvertAreNeutralAndReportedWithThePathAsWritten) {
    const struct {
        std::string (*read)(const ISettings& s, const char* p);
        const char *neutral, *report;
    } rows[] = {
#define READ(...) [](const ISettings& s, const char* p) { return __VA_ARGS__; }
        {READ(show(s.getAsBool(p))), "false", "getAsBoolInternal: node type mismatch: boolean"},
        {READ(show(s.getAsInt64(p))), "0", "getAsInt64Internal: node type mismatch: integer"},
        {READ(show(s.getAsFloat64(p))), "0", "getAsFloat64Internal: node type mismatch: float"},
        {READ(show(s.getStringBuffer(p))), "null",
         "getStringRawInternal: node type mismatch: string"},
        {READ(readArray(s.getAsInt64Array, p)), "0 0", "getAsInt64ArrayImpl: integer array"},
        {READ(readArray(s.getAsIntArray, p)), "0 0", "getAsInt32ArrayImpl: integer array"},
        {READ(readArray(s.getAsFloat64Array, p)), "0 0", "getAsFloat64ArrayImpl: float array"},
        {READ(readArray(s.getAsFloatArray, p)), "0 0", "getAsFloat32ArrayImpl: float array"},
        {READ(readArray(s.getAsBoolArray, p)), "false false", "getAsBoolArrayImpl: boolean array"},
        {READ(readArray(s.getStringBufferArray, p)), "null null",
         "getStringRawArrayImpl: string array"}};
    settings->setDictionary("/d/1");
    for (const auto& [read, neutral, report] : rows) {
        for (const std::string path : {"/none", "none", "//none"}) {
            EXPECT_EQ(read(*settings, path.c_str()), neutral);
            EXPECT_EQ(takeLog(), std::string("-2 ") + report + " read from " + path);
        }
        EXPECT_EQ(read(*settings, "/d"), neutral); // of an array, by its element
        EXPECT_NE(takeLog().find(" read from /d"), std::string::npos) << report;
    }
    for (const std::string path : {"/d", "d", "/d/1"}) { // a dictionary, and nothing
        EXPECT_EQ(settings->getAsInt64At(path.c_str(), 1), 0);
        EXPECT_EQ(takeLog(),
                  "-2 getAsInt64Internal: node type mismatch: integer read from " + path + "/1");
    }
    settings->setInt64("/n", 1);
    EXPECT_EQ(readArray(settings->getAsIntArray, "/n"), "0 0");
    EXPECT_EQ(show(settings->getAsInt64At("/none", 1)) + takeLog(), "0") << "nothing to report";
    EXPECT_FALSE(settings->getStringBuffer("/n")) << "strings are read unconverted";
    const int64_t wide[] = {(int64_t{1} << 32) + 7, -1};
    settings->setInt64Array("/l", wide, 2);
    EXPECT_EQ(readArray(settings->getAsIntArray, "/l"), "7 -1") << "the low 32 bits";
}

TEST_P(Reads, LookAtAPathNoFurtherThanItsPageGoes) {
    constexpr size_t kPage = 4096;
    alignas(kPage) static char s_pages[2 * kPage];
    char* const end = s_pages + kPage;
    ASSERT_EQ(mprotect(end, kPage, PROT_NONE), 0);
    std::string text = "/";
    for (int64_t length = 1; length < 80; ++length) {
        text += static_cast<char>('a' + length % 7);
        settings->setInt64(text.c_str(), length);
        const char* path =
            static_cast<char*>(memcpy(end - text.size() - 1, text.c_str(), text.size() + 1));
        EXPECT_EQ(settings->getAsInt64(path), length);
    }
    mprotect(end, kPage, PROT_READ | PROT_WRITE);
}

TEST_P(Reads, IntoBuffersAreTakenBackOnceAndAlsoAfterShutDown) {
    settings->setString("/s", "lent");
    const char* buffer = settings->createStringBufferFromItemValue("/s");
    settings->setString("/s", "later");
    EXPECT_STREQ(buffer, "lent");
    for (const char* given : {buffer, buffer, settings->getStringBuffer("/s"), "foreign"}) {
        settings->destroyStringBuffer(given);
    }
    EXPECT_STREQ(settings->getStringBuffer("/s"), "later");
    EXPECT_FALSE(settings->createStringBufferFromItemValue("/none"));
    EXPECT_FALSE(settings->createStringBufferFromItemValueAt("/s", 0));
    EXPECT_FALSE(settings->createStringBufferFromItemValue("")) << "no text form";
    EXPECT_EQ(takeLog(), "");
    buffer = settings->createStringBufferFromItemValue("/s");
    plugin.shutdown();
    takeCalls();
    for (int round = 0; round < 2; ++round) {
        settings->destroyStringBuffer(buffer);
        settings->destroyStringBuffer(nullptr); // null was handed out, too
    }
    EXPECT_EQ(takeCalls(),
              GetParam() ? "" : "destroyStringBuffer('later')\ndestroyStringBuffer(null)");
}
