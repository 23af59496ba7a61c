// Writing settings: set and reset change what they are asked to and not a byte besides.
#include "ToolFixture.h"

#include <sys/stat.h>

using vorn::test::Result;
using vorn::test::ToolTest;

namespace {

class EditTest : public ToolTest {
protected:
    // The file's text after one run of the tool on it.
    std::string edited(const std::string& text, Words arguments) const {
        write("a.json", text);
        arguments.insert(arguments.begin(), {"--file", "a.json"});
        EXPECT_EQ(outputOf(arguments), "");
        return read("a.json");
    }
    std::string set(const std::string& text, const std::string& path, const std::string& value) {
        return edited(text, {"set", path, value});
    }
    std::string reset(const std::string& text, const std::string& path) {
        return edited(text, {"reset", "--force", path});
    }
};

constexpr const char* kPretty = R"({
    "b" : 1.50,
    "a": [1,2 , 3],
    "none": [],  "o": {"x":1}
}

)";

TEST_F(EditTest, SetReplacesTheValueAndNothingElse) {
    EXPECT_EQ(set(kPretty, "/b", "2"), R"({
    "b" : 2,
    "a": [1,2 , 3],
    "none": [],  "o": {"x":1}
}

)");
    EXPECT_EQ(set(kPretty, "/a/1", "true"), R"({
    "b" : 1.50,
    "a": [1,true , 3],
    "none": [],  "o": {"x":1}
}

)");
    EXPECT_EQ(set(kPretty, "/b", "1.5"), R"({
    "b" : 1.5,
    "a": [1,2 , 3],
    "none": [],  "o": {"x":1}
}

)");
}

TEST_F(EditTest, SetAddsInTheFormOfTheFile) {
    EXPECT_EQ(set(kPretty, "/new/deep", R"({"k": [1]})"), R"({
    "b" : 1.50,
    "a": [1,2 , 3],
    "none": [],  "o": {"x":1},
    "new" : {
        "deep" : {
            "k": [
                1
            ]
        }
    }
}

)");
    EXPECT_EQ(set("{\n\t\"a\": 1\n}", "/b/c", "x"),
              "{\n\t\"a\": 1,\n\t\"b\": {\n\t\t\"c\": \"x\"\n\t}\n}");
    EXPECT_EQ(set("{\r\n  \"a\": []\r\n}\r\n", "/a/0", "{\"k\":1}"),
              "{\r\n  \"a\": [\r\n    {\r\n      \"k\": 1\r\n    }\r\n  ]\r\n}\r\n");
    EXPECT_EQ(set("{\"a\":1}", "/b", "[1, {\"c\": 2}]"), "{\"a\":1,\"b\":[1,{\"c\":2}]}");
    EXPECT_EQ(set("{\"a\": {\"x\": [1]}}", "/a/x/1", "2"), "{\"a\": {\"x\": [1, 2]}}");
    EXPECT_EQ(set("\xEF\xBB\xBF{}", "/a", "1"), "\xEF\xBB\xBF{\n  \"a\": 1\n}");
}

TEST_F(EditTest, ArraysBecomeObjectsOnlyWhenTheyHaveTo) {
    EXPECT_EQ(set("[1]", "/1", "2"), "[1,2]");
    EXPECT_EQ(set("[1]", "/3", "2"), "{\"0\":1,\"3\":2}");
    EXPECT_EQ(set("[1]", "/x", "2"), "{\"0\":1,\"x\":2}");
    EXPECT_EQ(reset("[1, 2, 3]", "/2"), "[1, 2]");
    EXPECT_EQ(reset("[1, 2, 3]", "/0"), "{\"1\":2, \"2\":3}");
}

TEST_F(EditTest, ResetTakesOutTheMemberWithItsComma) {
    EXPECT_EQ(reset(kPretty, "/b"), R"({
    "a": [1,2 , 3],
    "none": [],  "o": {"x":1}
}

)");
    EXPECT_EQ(reset(kPretty, "/o"), R"({
    "b" : 1.50,
    "a": [1,2 , 3],
    "none": []
}

)");
    EXPECT_EQ(reset("{\"a\": {\"b\": 1}}", "/a/b"), "{\"a\": {}}");
    EXPECT_EQ(reset("\n{\"a\": 1}\n", "/"), "\n{}\n");
}

TEST_F(EditTest, WhatSettingsCannotHoldStaysInTheFile) {
    write(
        "a.json",
        R"({"n": null, "big": 123456789012345678901234567890, "": 1, "a/b": [], "x": 1, "x": 2})");
    EXPECT_EQ(run({"--file", "a.json", "set", "/x", "3"}).exitCode, 0);
    EXPECT_EQ(run({"--file", "a.json", "set", "/n/m", "0"}).exitCode, 0);
    EXPECT_EQ(
        read("a.json"),
        R"({"n": {"m": 0}, "big": 123456789012345678901234567890, "": 1, "a/b": [], "x": 1, "x": 3})");
}

TEST_F(EditTest, ValuesAreTypedByTheirForm) {
    const std::vector<std::pair<Words, std::string>> cases = {
        {{"set", "/v", "-5"}, "-5"},
        {{"set", "/v", "1.0"}, "1.0"},
        {{"set", "/v", "1e3"}, "1000.0"},
        {{"set", "/v", "\"1\""}, "\"1\""},
        {{"set", "/v", "10.0.0.1"}, "\"10.0.0.1\""},
        {{"set", "/v", "True"}, "\"True\""},
        {{"set", "/v", ""}, "\"\""},
        {{"set", "/v", "[]"}, "[]"},
        {{"set", "--", "/v", "--x"}, "\"--x\""},
        {{"set", "--type", "string", "/v", "1"}, "\"1\""},
        {{"set", "--type", "string", "/v", "{\"a\""}, "\"{\\\"a\\\"\""},
        {{"set", "--type", "float", "/v", "1"}, "1.0"},
        {{"set", "--type=json", "/v", "null "}, ""},
        {{"set", "--type", "json", "/v", "bare"}, ""},
        {{"set", "--type", "int", "/v", "1.5"}, ""},
        {{"set", "--type", "bool", "/v", "1"}, ""},
        {{"set", "/v", "[1"}, ""},
        {{"set", "/v", "99999999999999999999"}, ""},
        {{"set", "/v", "1e999"}, ""},
        {{"set", "/v", "\xFF"}, ""},
        {{"set", "/", "1"}, ""},
    };
    for (const auto& [arguments, value] : cases) {
        write("a.json", "{\"v\": false}");
        Words all = {"--file", "a.json"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Result result = run(all);
        EXPECT_EQ(result.exitCode, value.empty() ? 2 : 0) << testing::PrintToString(all);
        EXPECT_EQ(read("a.json"), "{\"v\": " + (value.empty() ? "false" : value) + "}");
    }
}

TEST_F(EditTest, OnlyTheLastFileIsWritten) {
    write("base.json", "{\"a\": 1, \"b\": 2}");
    write("user.json", "{\"b\": 3}");
    const Words files = {"--file", "base.json", "--file", "user.json"};
    const auto with = [&files](const Words& rest) {
        Words all = files;
        all.insert(all.end(), rest.begin(), rest.end());
        return all;
    };
    EXPECT_EQ(outputOf(with({"set", "/a", "5"})), "");
    EXPECT_EQ(outputOf(with({"reset", "/b"})), "");
    EXPECT_EQ(read("base.json"), "{\"a\": 1, \"b\": 2}");
    EXPECT_EQ(read("user.json"), "{\"a\": 5}");
    expectFailure(with({"reset", "/b"}), 1,
                  "not in the last file: /b: expected a setting that user.json holds\n");
}

TEST_F(EditTest, DryRunShowsTheChangesAndLeavesTheFile) {
    write("a.json", "{\"a\": 1, \"b\": {\"c\": 2}}");
    EXPECT_EQ(outputOf({"--file", "a.json", "set", "--dry-run", "/b", "[true]"}),
              "/b/c: 2 -> unset\n/b/0: unset -> true\n");
    EXPECT_EQ(outputOf({"--file", "a.json", "reset", "--dry-run", "/a"}), "/a: 1 -> unset\n");
    EXPECT_EQ(read("a.json"), "{\"a\": 1, \"b\": {\"c\": 2}}");
}

TEST_F(EditTest, ResetOfMoreThanOneValueWantsForce) {
    write("a.json", "{\"a\": {\"b\": 1}, \"l\": [1, 2]}");
    expectFailure({"--file", "a.json", "reset", "/a"}, 2,
                  "more than one setting: /a: expected --force to remove all below it\n");
    expectFailure({"--file", "a.json", "reset", "/l/0"}, 2,
                  "inside an array: /l/0: expected the last element, or --force to make a "
                  "dictionary of the array\n");
}

TEST_F(EditTest, ModeAndLinksStay) {
    write("real.json", "{\"a\": 1}");
    chmod((directory / "real.json").c_str(), 0640);
    std::filesystem::create_directory(directory / "sub");
    std::filesystem::create_symlink("../real.json", directory / "sub/link.json");
    EXPECT_EQ(outputOf({"--file", "sub/link.json", "set", "a", "2"}), "");
    EXPECT_EQ(read("real.json"), "{\"a\": 2}");
    EXPECT_TRUE(std::filesystem::is_symlink(directory / "sub/link.json"));
    struct stat status = {};
    stat((directory / "real.json").c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(contents().size(), 3u) << "a temporary file was left";
}

TEST_F(EditTest, WritersAtTheSameTimeLoseNothing) {
    write("a.json", "{}");
    std::vector<std::unique_ptr<vorn::test::Process>> writers;
    for (int index = 0; index < 12; ++index) {
        writers.push_back(std::make_unique<vorn::test::Process>(
            command({"--file", "a.json", "set", "k" + std::to_string(index), "1"}), surroundings));
    }
    for (const auto& writer : writers) {
        EXPECT_EQ(writer->wait(), 0) << writer->errors();
    }
    const std::string names = outputOf({"--file", "a.json", "list"});
    EXPECT_EQ(std::count(names.begin(), names.end(), '\n'), 12);
}

} // namespace
