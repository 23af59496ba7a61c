// Children as elements of an array: their names say which.
#include "support/Store.h"

using namespace foreign;

class ArrayNames : public Store {
protected:
    // Makes /l of children with these names, which hold 10, 11, 12, ...
    void makeChildren(const Lines& names) {
        settings->destroyItem("/l");
        settings->setDictionary("/l");
        for (size_t i = 0; i < names.size(); ++i) {
            dictionary->setInt64(addChild(at("/l"), names[i]), static_cast<int64_t>(10 + i));
        }
    }
    // What is written to a buffer and logged: "0=10 2=11 ..." when one warning said that not all
    // fits.
    std::string read(size_t bufferLength = 9) {
        std::vector<int64_t> places(9, -1);
        settings->getAsInt64Array("/l", places.data(), bufferLength);
        Lines written;
        for (size_t i = 0; i < places.size(); ++i) {
            if (places[i] != -1) {
                written.push_back(std::to_string(i) + "=" + std::to_string(places[i]));
            }
        }
        const std::string log = takeLog();
        const bool isWarning = log == "0 getSharedArray: supplied array buffer doesn't fit the "
                                      "requested array";
        return join(written, " ") + (isWarning ? " ..." : log);
    }
};

TEST_F(ArrayNames, DecideThePlacesAndTheLength) {
    const struct {
        Lines names;
        size_t bufferLength;
        const char* places;
        size_t length; // 0: the indices are not 0 to n-1
    } rows[] = {
        {{"0", "1", "2"}, 9, "0=10 1=11 2=12", 3},
        {{"2", "02", "0", "1"}, 9, "0=12 1=13 2=11", 3},
        {{"0", "1", "01"}, 9, "0=10 1=12", 2},
        {{"-0", "01", "0x2", "0X3", " 4", "+5", "006"}, 9, "0=10 1=11 2=12 3=13 4=14 5=15 6=16", 7},
        {{"010", "", "4294967297"}, 9, "0=11 1=12 8=10", 0},
        {{"1", "2"}, 9, "1=10 2=11", 0},
        {{"0", "2"}, 9, "0=10 2=11", 0},
        {{"0", "0x0b"}, 9, "0=10 ...", 0},
        {{"0", "2147483647"}, 9, "0=10 ...", 0},
        {{"3", "0", "2", "1", "x"}, 2, "0=11 1=13 ...", 0},
        {{"0", "1"}, 0, " ...", 2},
        {{"x"}, 0, "", 0},
        {{}, 9, "", 0}};
    for (const auto& [names, bufferLength, places, length] : rows) {
        makeChildren(names);
        EXPECT_EQ(read(bufferLength), places);
        EXPECT_EQ(settings->getArrayLength("/l"), length) << places;
        EXPECT_EQ(settings->isAccessibleAsArray("/l"), length != 0) << places;
        EXPECT_EQ(settings->isAccessibleAsArrayOf(eInt, "/l"), length != 0) << places;
    }
    for (const char* name : {"3 ", "3a", "-1", "08", "1.0", "0x", "0b1", "one", "2147483648",
                             "99999999999999999999"}) {
        makeChildren({"0", name});
        EXPECT_EQ(read(), "0=10") << name;
        EXPECT_EQ(settings->getArrayLength("/l"), 0u) << name;
    }
    makeChildren({"0", "01"});
    settings->setString("/l/01", "x");
    EXPECT_EQ(read(), "0=10 1=0-2 getAsInt64Internal: node type mismatch: integer read from /l/01");
    settings->destroyItem("");
    settings->setInt64At("/", 0, 1);
    EXPECT_EQ(settings->getArrayLength("") + settings->getArrayLength("/"), 2u) << "the root";
    settings->setInt64At("l", SIZE_MAX, 2);
    EXPECT_EQ(dump(), "{0:1 l:{18446744073709551615:2}}");
}

// As when another thread makes the array shorter.
TEST_F(ArrayNames, MayHoldSlashesWhichPathsOfEventsAreCutAtOrBeEmpty) {
    makeChildren({"b/c", ""});
    for (const char* path : {"/l", "/l/b", "/l/b/c"}) {
        onNode(path, path);
        onTree(path, path);
    }
    settings->destroyItem("/l");
    // One level up for each cut, whatever it cuts off; no slash at the end.
    EXPECT_EQ(takeEvents(), "/l -/l, /l/b/c -/l/b/c, /l/b /l:-/l/b/c, /l <ISettings root>:-/l/b/c, "
                            "/l -/l/");
}

TEST_F(ArrayNames, ChildrenThatAreGoneByTheirTurnEndTheWalk) {
    makeChildren({"0"});
    g_recorder.missingChildren = 1;
    EXPECT_EQ(read(), "0=10");
    EXPECT_EQ(settings->getArrayLength("/l"), 0u);
    onNodes({"/l", "/l/0"});
    const int64_t value = 1;
    settings->setInt64Array("/l", &value, 1);
    EXPECT_EQ(takeEvents(), "N /l, N /l/0");
}
