// Whole arrays: what counts as one, reading into buffers, writing.
#include "support/Store.h"

#include <sstream>

using namespace foreign;

template <class T>
std::string readArray(void (*read)(const char*, T*, size_t), const char* path) {
    T places[2] = {};
    read(path, places, 2);
    return text(places[0]) + " " + text(places[1]);
}

#define READ(slot) [](const ISettings& s, const char* p) { return readArray(s.slot, p); }
#define WRITE(slot, T, ...)                                                                        \
    [](const ISettings& s, const char* p) {                                                        \
        const T values[] = {__VA_ARGS__};                                                          \
        s.slot(p, values, 2);                                                                      \
    }

struct ArrayCase {
    const char *values, *neutral;
    const char* missing; // the message for a missing node, in part
    std::string (*read)(const ISettings& s, const char* p);
    void (*write)(const ISettings& s, const char* p);
};

const ArrayCase kArrayCases[] = {
    {"5000000000 -7", "0 0", "getAsInt64ArrayImpl: integer", READ(getAsInt64Array),
     WRITE(setInt64Array, int64_t, 5000000000, -7)},
    {"7 -8", "0 0", "getAsInt32ArrayImpl: integer", READ(getAsIntArray),
     WRITE(setIntArray, int32_t, 7, -8)},
    {"0.1 2.5", "0 0", "getAsFloat64ArrayImpl: float", READ(getAsFloat64Array),
     WRITE(setFloat64Array, double, 0.1, 2.5)},
    {"0.25 2.5", "0 0", "getAsFloat32ArrayImpl: float", READ(getAsFloatArray),
     WRITE(setFloatArray, float, 0.25f, 2.5f)},
    {"false true", "false false", "getAsBoolArrayImpl: boolean", READ(getAsBoolArray),
     WRITE(setBoolArray, bool, false, true)},
    {"x y", "null null", "getStringRawArrayImpl: string", READ(getStringBufferArray),
     WRITE(setStringArray, char*, "x", "y")}};

class ArrayNames : public RecordedStore {
protected:
    // Reads /l with children of these names, which hold 10, 11, 12, ..., into a buffer. The
    // result tells what was written and logged: "0=10 2=11 ..." when one warning said that not
    // all fits.
    std::string readArrayOf(const std::string& names, size_t bufferLength) {
        settings->destroyItem("/l");
        settings->setDictionary("/l");
        std::istringstream stream(names);
        int64_t value = 10;
        for (std::string name; std::getline(stream, name, ',');) {
            g_recorder.addChild(at("/l"), name.c_str(), value++);
        }
        std::vector<int64_t> places(9, -1);
        settings->getAsInt64Array("/l", places.data(), bufferLength);
        Lines written;
        for (size_t i = 0; i < places.size(); ++i) {
            if (places[i] != -1) {
                written.push_back(std::to_string(i) + "=" + std::to_string(places[i]));
            }
        }
        const std::string log = takeLog(), warning = "0 getSharedArray: supplied array buffer "
                                                     "doesn't fit the requested array";
        return join(written, " ") + (log == warning ? " ..." : log);
    }
};
VORN_OVER_BOTH_SERVICES(Arrays);

TEST_P(Arrays, EveryTypeReadsBackAndIsNeutralWhereItCannot) {
    settings->setDictionary("/d/0");
    settings->setDictionary("/d/1");
    settings->setInt64("/leaf", 1);
    for (const ArrayCase& row : kArrayCases) {
        row.write(*settings, "/l");
        EXPECT_EQ(row.read(*settings, "l"), row.values);
        EXPECT_EQ(settings->getArrayLength("/l"), 2u);
        EXPECT_EQ(row.read(*settings, "/leaf"), row.neutral);
        EXPECT_EQ(takeLog(), "");
        EXPECT_EQ(row.read(*settings, "/none"), row.neutral);
        EXPECT_EQ(takeLog(), "-2 " + std::string(row.missing) + " array read from /none");
        EXPECT_EQ(row.read(*settings, "/d"), row.neutral);
        const std::string log = takeLog();
        EXPECT_TRUE(log.find(" /d/0\n") != log.npos && log.ends_with(" /d/1")) << log;
    }
    const int64_t wide[] = {(int64_t(1) << 32) + 7, -1};
    settings->setInt64Array("/l", wide, 2);
    EXPECT_EQ(readArray(settings->getAsIntArray, "/l"), "7 -1") << "the low 32 bits";
    EXPECT_EQ(settings->getArrayLength("/none") + settings->getArrayLength("/leaf"), 0u);
    EXPECT_EQ(settings->getPreferredArrayType("/none"), eCount);
    EXPECT_EQ(takeLog(), "");
}

TEST_P(Arrays, ElementsThatExistAfterTheWriteAreTold) {
    const int64_t values[] = {1, 2};
    onTree("/a", "T");
    settings->setInt64Array("/a/l", values, 2);
    settings->setInt64Array("/a/l", values, 1);
    settings->setInt64Array("/a/l", values, 0);
    EXPECT_EQ(takeEvents(), "T /a:/a/l, T /a:/a/l/0, T /a:/a/l/1, " // two elements
                            "T /a:/a/l, T /a:/a/l/0, "              // one
                            "T /a:/a/l");                           // none
    onNode("/l", "L", [&] { settings->setInt64At("/l", 2, 3); });
    onNodes({"/l/0", "/l/1", "/l/2"});
    settings->setInt64Array("/l", values, 2);
    EXPECT_EQ(takeEvents(), "L /l, N /l/2, N /l/0, N /l/1, N /l/2")
        << "children are counted after the array's own callbacks";
}

TEST_F(ArrayNames, DecideThePlacesAndTheLength) {
    const struct {
        const char* names;
        size_t length; // 0: the indices are not 0 to n-1
        const char* places;
    } arrays[] = {{"0,1,2", 3, "0=10 1=11 2=12"},
                  {"2,0,1", 3, "0=11 1=12 2=10"},
                  {"0,1,01", 2, "0=10 1=12"},
                  {"-0,01,0x2,0X3, 4,+5,006", 7, "0=10 1=11 2=12 3=13 4=14 5=15 6=16"},
                  {"010,,4294967297", 0, "0=11 1=12 8=10"},
                  {"1,2", 0, "1=10 2=11"},
                  {"0,2", 0, "0=10 2=11"},
                  {"0,0x0b", 0, "0=10 ..."},
                  {"0,2147483647", 0, "0=10 ..."},
                  {"", 0, ""}};
    for (const auto& [names, length, places] : arrays) {
        EXPECT_EQ(readArrayOf(names, 9), places) << names;
        EXPECT_EQ(settings->getArrayLength("/l"), length) << names;
        EXPECT_EQ(settings->isAccessibleAsArray("/l"), length != 0) << names;
        EXPECT_EQ(settings->isAccessibleAsArrayOf(eInt, "/l"), length != 0) << names;
    }
    for (const std::string name : {"3 ", "3a", "-1", "08", "1.0", "0x", "0b1", "one", "2147483648",
                                   "99999999999999999999"}) {
        EXPECT_EQ(readArrayOf("0," + name, 8), "0=10") << name;
        EXPECT_EQ(settings->getArrayLength("/l"), 0u) << name;
    }
    settings->destroyItem("");
    settings->setInt64("/0", 1);
    EXPECT_EQ(settings->getArrayLength("") + settings->getArrayLength("/"), 2u) << "the root";
}

// As when another thread makes the array shorter.
TEST_F(ArrayNames, ChildrenThatAreGoneByTheirTurnEndTheWalk) {
    g_recorder.missingChildren = 1;
    EXPECT_EQ(readArrayOf("0", 2), "0=10");
    EXPECT_EQ(settings->getArrayLength("/l"), 0u);
    onNodes({"/l", "/l/0"});
    const int64_t value = 1;
    settings->setInt64Array("/l", &value, 1);
    EXPECT_EQ(takeEvents(), "N /l, N /l/0");
}

TEST_F(ArrayNames, AnEmptyOneLeavesNoTraceInThePathOfItsEvents) {
    settings->setDictionary("/a");
    g_recorder.addChild(at("/a"), "", 1);
    onNodes({"/a", "/a/"});
    settings->destroyItem("/a");
    EXPECT_EQ(takeEvents(), "N -/a, N -/a/");
}

TEST_F(ArrayNames, WhatDoesNotFitTheBufferIsLeftOutWithOneWarning) {
    EXPECT_EQ(readArrayOf("3,0,2,1,x", 2), "0=11 1=13 ...");
    EXPECT_EQ(readArrayOf("0,1", 0), " ...");
    EXPECT_EQ(readArrayOf("x", 0), "");
    EXPECT_EQ(readArrayOf("0,01", 9), "0=10 1=11");
    settings->setString("/l/01", "x");
    EXPECT_EQ(readArray(settings->getAsInt64Array, "l"), "10 0");
    EXPECT_EQ(takeLog(), "-2 getAsInt64Internal: node type mismatch: integer read from l/01");
    EXPECT_FALSE(settings->isAccessibleAsArrayOf(eInt, "/l"));
}
