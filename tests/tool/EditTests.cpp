// Writing settings: set and reset change what they are asked to and not a byte besides.
#include "ToolFixture.h"

#include <sys/stat.h>

using namespace vorn::test;

using EditTest = ToolTest;

static const std::string kPretty = R"({
    "b" : 1.50,
    "a": [1,2 , 3],
    "none": [],  "o": {"x":1}
}

)";

// The text above with one piece of it replaced.
static std::string prettyWith(const std::string& old, const std::string& piece) {
    return std::string(kPretty).replace(kPretty.find(old), old.size(), piece);
}

TEST_F(EditTest, SetAndResetKeepTheFormOfTheFile) {
    const struct {
        std::string before;
        Words arguments;
        std::string after;
    } rows[] = {
        {kPretty, {"set", "/b", "1.5"}, prettyWith("1.50", "1.5")},
        {kPretty, {"set", "/a/1", "true"}, prettyWith("2 ,", "true ,")},
        {kPretty,
         {"set", "/new/deep", "[1]"},
         prettyWith("1}\n", "1},\n    \"new\" : {\n        \"deep\" : [\n            1\n"
                            "        ]\n    }\n")},
        {"{\r\n\t\"a\": []\r\n}\r\n",
         {"set", "/a/0/b", "x"},
         "{\r\n\t\"a\": [\r\n\t\t{\r\n\t\t\t\"b\": \"x\"\r\n\t\t}\r\n\t]\r\n}\r\n"},
        {"{\"a\":1}", {"set", "/b", "[1, {\"c\": 2}]"}, "{\"a\":1,\"b\":[1,{\"c\":2}]}"},
        {"{\"a\": {\"x\": [1]}}", {"set", "/a/x/1", "2"}, "{\"a\": {\"x\": [1, 2]}}"},
        {"\xEF\xBB\xBF{}", {"set", "/a", "1"}, "\xEF\xBB\xBF{\n  \"a\": 1\n}"},
        {"[1]", {"set", "/3", "2"}, "{\"0\":1,\"3\":2}"},
        {"[1, 2, 3]", {"reset", "/2"}, "[1, 2]"},
        {"[1, 2, 3]", {"reset", "--force", "/0"}, "{\"1\":2, \"2\":3}"},
        {kPretty, {"reset", "/b"}, prettyWith("    \"b\" : 1.50,\n", "")},
        {kPretty, {"reset", "--force", "/o"}, prettyWith(",  \"o\": {\"x\":1}", "")},
        {"\n{\"a\": 1}\n", {"reset", "--force", "/"}, "\n{}\n"},
        {"[0]", {"set", "/0", "-5"}, "[-5]"},
        {"[0]", {"set", "/0", ""}, "[\"\"]"},
        {"[0]", {"set", "--", "/0", "--x"}, "[\"--x\"]"},
        {"[0]", {"set", "--type", "string", "/0", "{\"a\""}, "[\"{\\\"a\\\"\"]"},
        {"[0]", {"set", "--type", "float", "/0", "1"}, "[1.0]"},
    };
    for (const auto& row : rows) {
        write("a.json", row.before);
        EXPECT_EQ(outputOf(onFile(row.arguments)), "");
        EXPECT_EQ(read("a.json"), row.after);
    }
}

TEST_F(EditTest, WhatSettingsCannotHoldStaysAlsoInWideObjects) {
    std::string text = R"({"n": null, "big": 12345678901234567890, "": 1, "a/b": [], "k0": 1)";
    for (int index = 1; index < 150; ++index) {
        text += ", \"k" + std::to_string(index) + "\": 0";
    }
    write("a.json", text + ", \"k0\": 1, \"end\": 2}");
    run(onFile({"shell"}), "set /k0 a\nset /new 1\nset /new 2\nreset /end\nset /new 3\nsave\n");
    EXPECT_EQ(read("a.json"), text + ", \"k0\": \"a\", \"new\": 3}");
}

TEST_F(EditTest, OnlyTheLastFileIsWrittenAndLargeChangesAreShownOrWantForce) {
    write("a.json", R"({"a": {"b": 1}, "l": [1, 2]})");
    write("user.json", R"({"l": 3})");
    const auto before = contents();
    EXPECT_EQ(outputOf(onFile({"set", "--dry-run", "/a", "[true]"})),
              "/a/b: 1 -> unset\n/a/0: unset -> true\n");
    EXPECT_EQ(contents(), before);
    expectFailure(onFile({"reset", "/a"}), 2,
                  "more than one setting: /a: expected --force to remove all below it\n");
    expectFailure(onFile({"reset", "/l/0"}), 2, "inside an array: /l/0: expected the last element");

    const auto onBoth = [](const Words& rest) { return onFile(onFile(rest, "user.json")); };
    outputOf(onBoth({"set", "/a/b", "5"}));
    outputOf(onBoth({"reset", "/l"}));
    EXPECT_EQ(read("a.json"), before.at("a.json"));
    EXPECT_EQ(onOneLine(read("user.json")), R"({"a":{"b":5}})");
    expectFailure(onBoth({"reset", "/l/1"}), 1,
                  "not in the last file: /l/1: expected a setting that user.json holds\n");
}

TEST_F(EditTest, ModeAndLinksStay) {
    write("real.json", "{\"a\": 1}");
    chmod((directory / "real.json").c_str(), 0640);
    fs::create_directory(directory / "sub");
    fs::create_symlink("../real.json", directory / "sub/link.json");
    EXPECT_EQ(outputOf(onFile({"set", "a", "2"}, "sub/link.json")), "");
    EXPECT_EQ(read("real.json"), "{\"a\": 2}");
    EXPECT_TRUE(fs::is_symlink(directory / "sub/link.json"));
    EXPECT_EQ(int(fs::status(directory / "real.json").permissions()), 0640);
    EXPECT_EQ(contents().size(), 3u) << "a temporary file was left";
}

TEST_F(EditTest, WritersAtTheSameTimeLoseNothing) {
    write("a.json", "{}");
    surroundings.setup =
        "for k in 1 2 3 4 5 6 7 8 9; do \"$0\" --file a.json set $k 1& done; wait;";
    const std::string names = outputOf(onFile({"list"}));
    EXPECT_EQ(std::count(names.begin(), names.end(), '\n'), 9) << names;
}
