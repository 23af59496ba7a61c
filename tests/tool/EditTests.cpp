// Writing settings: set and reset change what they are asked to and not a byte besides.
#include "ToolFixture.h"

#include <sys/stat.h>

using namespace vorn::test;

class EditTest : public ToolTest {
protected:
    // The file's text after one run of the tool on it.
    std::string edited(const std::string& text, const Words& arguments) const {
        write("a.json", text);
        EXPECT_EQ(outputOf(onFile(arguments)), "");
        return read("a.json");
    }
    std::string set(const std::string& text, const std::string& path, const std::string& value) {
        return edited(text, {"set", path, value});
    }
    std::string reset(const std::string& text, const std::string& path) {
        return edited(text, {"reset", "--force", path});
    }
};

static constexpr const char* kPretty = R"({
    "b" : 1.50,
    "a": [1,2 , 3],
    "none": [],  "o": {"x":1}
}

)";

// The text above with one piece of it replaced.
static std::string prettyWith(const std::string& old, const std::string& piece) {
    std::string text = kPretty;
    return text.replace(text.find(old), old.size(), piece);
}

TEST_F(EditTest, SetReplacesOrAddsInTheFormOfTheFile) {
    EXPECT_EQ(set(kPretty, "/b", "1.5"), prettyWith("1.50", "1.5"));
    EXPECT_EQ(set(kPretty, "/a/1", "true"), prettyWith("2 ,", "true ,"));
    EXPECT_EQ(set(kPretty, "/new/deep", "[1]"),
              prettyWith("1}\n", "1},\n    \"new\" : {\n        \"deep\" : [\n            1\n"
                                 "        ]\n    }\n"));
    EXPECT_EQ(set("{\n\t\"a\": 1\n}", "/b/c", "x"),
              "{\n\t\"a\": 1,\n\t\"b\": {\n\t\t\"c\": \"x\"\n\t}\n}");
    EXPECT_EQ(set("{\r\n  \"a\": []\r\n}\r\n", "/a/0", "1"),
              "{\r\n  \"a\": [\r\n    1\r\n  ]\r\n}\r\n");
    EXPECT_EQ(set("{\"a\":1}", "/b", "[1, {\"c\": 2}]"), "{\"a\":1,\"b\":[1,{\"c\":2}]}");
    EXPECT_EQ(set("{\"a\": {\"x\": [1]}}", "/a/x/1", "2"), "{\"a\": {\"x\": [1, 2]}}");
    EXPECT_EQ(set("\xEF\xBB\xBF{}", "/a", "1"), "\xEF\xBB\xBF{\n  \"a\": 1\n}");
}

TEST_F(EditTest, ResetTakesCommasAlongAndArraysBecomeObjectsWhenTheyHaveTo) {
    EXPECT_EQ(set("[1]", "/3", "2"), "{\"0\":1,\"3\":2}");
    EXPECT_EQ(reset("[1, 2, 3]", "/2"), "[1, 2]");
    EXPECT_EQ(reset("[1, 2, 3]", "/0"), "{\"1\":2, \"2\":3}");
    EXPECT_EQ(reset(kPretty, "/b"), prettyWith("    \"b\" : 1.50,\n", ""));
    EXPECT_EQ(reset(kPretty, "/o"), prettyWith(",  \"o\": {\"x\":1}", ""));
    EXPECT_EQ(reset("\n{\"a\": 1}\n", "/"), "\n{}\n");
}

TEST_F(EditTest, WhatSettingsCannotHoldStaysAlsoInWideObjects) {
    const std::string text = R"({"n": null, "big": 12345678901234567890, "": 1, "a/b": [], "x": 1)";
    write("a.json", text + R"(, "x": 2})");
    EXPECT_EQ(run(onFile({"set", "/x", "3"})).exitCode, 0);
    EXPECT_EQ(read("a.json"), text + R"(, "x": 3})");

    std::string middle;
    for (int index = 1; index < 150; ++index) {
        middle += ", \"k" + std::to_string(index) + "\": 0";
    }
    write("a.json", "{\"k0\": 0" + middle + ", \"k0\": 1, \"end\": 2}");
    run(onFile({"shell"}), "set /k0 a\nset /new 1\nset /new 2\nreset /end\nset /new 3\nsave\n");
    EXPECT_EQ(read("a.json"), "{\"k0\": 0" + middle + ", \"k0\": \"a\", \"new\": 3}");
}

TEST_F(EditTest, ValuesAreTypedByTheirForm) {
    const std::vector<std::pair<Words, std::string>> cases = {
        {{"/v", "-5"}, "-5"},
        {{"/v", ""}, "\"\""},
        {{"--", "/v", "--x"}, "\"--x\""},
        {{"--type", "string", "/v", "{\"a\""}, "\"{\\\"a\\\"\""},
        {{"--type", "float", "/v", "1"}, "1.0"},
        {{"--type=json", "/v", "null "}, ""},
        {{"--type", "int", "/v", "1.5"}, ""},
        {{"/v", "99999999999999999999"}, ""},
        {{"/v", "\xFF"}, ""},
    };
    for (auto [arguments, value] : cases) {
        write("a.json", "{\"v\": false}");
        arguments.insert(arguments.begin(), "set");
        EXPECT_EQ(run(onFile(arguments)).exitCode, value.empty() ? 2 : 0) << arguments.back();
        EXPECT_EQ(read("a.json"), "{\"v\": " + (value.empty() ? "false" : value) + "}");
    }
}

TEST_F(EditTest, OnlyTheLastFileIsWritten) {
    write("base.json", "{\"a\": 1, \"b\": 2}");
    write("user.json", "{\"b\": 3}");
    const auto onBoth = [](const Words& rest) {
        return onFile(onFile(rest, "user.json"), "base.json");
    };
    EXPECT_EQ(outputOf(onBoth({"set", "/a", "5"})), "");
    EXPECT_EQ(outputOf(onBoth({"reset", "/b"})), "");
    EXPECT_EQ(read("base.json"), "{\"a\": 1, \"b\": 2}");
    EXPECT_EQ(read("user.json"), "{\"a\": 5}");
    expectFailure(onBoth({"reset", "/b"}), 1,
                  "not in the last file: /b: expected a setting that user.json holds\n");
}

TEST_F(EditTest, LargeChangesAreShownOrWantForce) {
    write("a.json", "{\"a\": {\"b\": 1}, \"l\": [1, 2]}");
    const auto before = contents();
    EXPECT_EQ(outputOf(onFile({"set", "--dry-run", "/a", "[true]"})),
              "/a/b: 1 -> unset\n/a/0: unset -> true\n");
    EXPECT_EQ(contents(), before);
    expectFailure(onFile({"reset", "/a"}), 2,
                  "more than one setting: /a: expected --force to remove all below it\n");
    expectFailure(onFile({"reset", "/l/0"}), 2, "inside an array: /l/0: expected the last element");
}

TEST_F(EditTest, ModeAndLinksStay) {
    write("real.json", "{\"a\": 1}");
    chmod((directory / "real.json").c_str(), 0640);
    std::filesystem::create_directory(directory / "sub");
    std::filesystem::create_symlink("../real.json", directory / "sub/link.json");
    EXPECT_EQ(outputOf({"--file", "sub/link.json", "set", "a", "2"}), "");
    EXPECT_EQ(read("real.json"), "{\"a\": 2}");
    EXPECT_TRUE(std::filesystem::is_symlink(directory / "sub/link.json"));
    EXPECT_EQ(int(std::filesystem::status(directory / "real.json").permissions()), 0640);
    EXPECT_EQ(contents().size(), 3u) << "a temporary file was left";
}

TEST_F(EditTest, WritersAtTheSameTimeLoseNothing) {
    write("a.json", "{}");
    surroundings.setup =
        "for k in 1 2 3 4 5 6 7 8 9; do \"$0\" --file a.json set $k 1& done; wait;";
    const std::string names = outputOf(onFile({"list"}));
    EXPECT_EQ(std::count(names.begin(), names.end(), '\n'), 9) << names;
}
