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

struct Reader {
    std::string (*read)(const ISettings& s, const char* p);
    const char* neutral;
    const char *name, *type; // as messages tell them
};

#define READ(...) [](const ISettings& s, const char* p) { return __VA_ARGS__; }

VORN_OVER_BOTH_SERVICES(Reads);

TEST_P(Reads, OfWhatDoesNotConvertAreNeutralAndReportedWithThePathAsWritten) {
    const Reader readers[] = {
        {READ(show(s.getAsBool(p))), "false", "getAsBoolInternal", "boolean"},
        {READ(show(s.getAsInt64(p))), "0", "getAsInt64Internal", "integer"},
        {READ(show(s.getAsFloat64(p))), "0", "getAsFloat64Internal", "float"},
        {READ(show(s.getStringBuffer(p))), "null", "getStringRawInternal", "string"}};
    settings->setDictionary("/d/2");
    for (const auto& [read, neutral, name, type] : readers) {
        for (const std::string path : {"/none", "none", "//none", "/d"}) {
            EXPECT_EQ(read(*settings, path.c_str()), neutral);
            EXPECT_EQ(takeLog(), "-2 " + std::string(name) + ": node type mismatch: " + type +
                                     " read from " + path);
        }
    }
    for (const std::string path : {"/d", "d", "/d/2"}) { // a dictionary, and nothing
        EXPECT_EQ(settings->getAsInt64At(path.c_str(), 2), 0);
        EXPECT_EQ(takeLog(),
                  "-2 getAsInt64Internal: node type mismatch: integer read from " + path + "/2");
    }
    EXPECT_EQ(show(settings->getAsInt64At("/none", 2)) + takeLog(), "0");
    settings->setInt64("/n", 1);
    EXPECT_FALSE(settings->getStringBuffer("/n")) << "strings are read unconverted";
}

TEST_P(Reads, LookAtAPathNoFurtherThanItsPageGoes) {
    const size_t page = 4096;
    void* memory =
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    char* const end = static_cast<char*>(memory) + page;
    ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
    std::string text = "/";
    for (int64_t length = 1; length < 80; ++length) {
        text += static_cast<char>('a' + length % 7);
        settings->setInt64(text.c_str(), length);
        const char* path =
            static_cast<char*>(memcpy(end - text.size() - 1, text.c_str(), text.size() + 1));
        EXPECT_EQ(settings->getAsInt64(path), length);
    }
    munmap(memory, 2 * page);
}

TEST_P(Reads, OfWhatIsNoArrayLeaveTheBufferAndReportMissingNodes) {
    const Reader readers[] = {
        {READ(readArray(s.getAsInt64Array, p)), "0 0", "getAsInt64ArrayImpl", "integer"},
        {READ(readArray(s.getAsIntArray, p)), "0 0", "getAsInt32ArrayImpl", "integer"},
        {READ(readArray(s.getAsFloat64Array, p)), "0 0", "getAsFloat64ArrayImpl", "float"},
        {READ(readArray(s.getAsFloatArray, p)), "0 0", "getAsFloat32ArrayImpl", "float"},
        {READ(readArray(s.getAsBoolArray, p)), "false false", "getAsBoolArrayImpl", "boolean"},
        {READ(readArray(s.getStringBufferArray, p)), "null null", "getStringRawArrayImpl",
         "string"}};
    settings->setInt64("/leaf", 1);
    settings->setDictionary("/d/1");
    for (const auto& [read, neutral, name, type] : readers) {
        EXPECT_EQ(read(*settings, "/leaf") + takeLog(), neutral);
        EXPECT_EQ(read(*settings, "/none"), neutral);
        EXPECT_EQ(takeLog(), "-2 " + std::string(name) + ": " + type + " array read from /none");
        EXPECT_EQ(read(*settings, "/d"), neutral);
        EXPECT_TRUE(takeLog().ends_with(std::string(": ") + type + " read from /d/1"));
    }
    const int64_t wide[] = {(int64_t{1} << 32) + 7, -1};
    settings->setInt64Array("/l", wide, 2);
    EXPECT_EQ(readArray(settings->getAsIntArray, "/l"), "7 -1") << "the low 32 bits";
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
