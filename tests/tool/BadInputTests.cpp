// Bad input and bad usage: one clear message, the right exit code, and no file touched.
#include "ToolFixture.h"

#include <sys/stat.h>

using vorn::test::Result;
using vorn::test::ToolTest;

namespace {

class BadInputTest : public ToolTest {
protected:
    // A file with that text is refused by a command that reads and by one that writes.
    void expectRefused(const std::string& text, const std::string& message) const {
        write("a.json", text);
        expectFailure({"--file", "a.json", "get", "/x"}, 2, message);
        expectFailure({"--file", "a.json", "set", "/x", "1"}, 2, message);
    }
};

TEST_F(BadInputTest, BrokenJsonIsShownWithItsPlace) {
    expectRefused(
        "{\n  \"a\": 1,\n  \"ü\" 2\n}\n",
        "broken JSON: a.json:3:7: expected ':', found a number\n    \"ü\" 2\n        ^\n");
    expectRefused("{\"a\": [1, 2}", "broken JSON: a.json:1:12: expected ',' or ']', found '}'\n"
                                    "  {\"a\": [1, 2}\n             ^\n");
    expectRefused("[1,,2]", "broken JSON: a.json:1:4: expected a value, found ','\n"
                            "  [1,,2]\n     ^\n");
    expectRefused("\t{\"a\": tru}", "broken JSON: a.json:1:8: expected a value, found invalid "
                                    "literal\n  \t{\"a\": tru}\n  \t      ^\n");
    expectRefused("{\"a\": 1\n\n", "broken JSON: a.json:1:8: expected ',' or '}', found end of "
                                   "input\n  {\"a\": 1\n         ^\n");
    expectRefused("{\"a\": 1,}", "broken JSON: a.json:1:9: expected a string, found '}'\n"
                                 "  {\"a\": 1,}\n          ^\n");
    expectRefused("{'a': 1}", "broken JSON: a.json:1:2: expected a string, found invalid literal\n"
                              "  {'a': 1}\n   ^\n");
}

TEST_F(BadInputTest, LongLinesAreCutAroundThePlace) {
    expectRefused("[\"" + std::string(500, 'x') + "\" " + std::string(500, 'y'),
                  "broken JSON: a.json:1:505: expected ',' or ']', found invalid literal\n  " +
                      std::string(58, 'x') + "\" " + std::string(60, 'y') + "\n  " +
                      std::string(60, ' ') + "^\n");
}

TEST_F(BadInputTest, TextAfterTheEndIsRefused) {
    expectRefused("{} x", "broken JSON: a.json:1:4: expected end of input, found invalid literal\n"
                          "  {} x\n     ^\n");
    expectRefused("{} {}", "broken JSON: a.json:1:4: expected end of input, found '{'\n"
                           "  {} {}\n     ^\n");
}

TEST_F(BadInputTest, BrokenUtf8IsRefused) {
    expectRefused("{\"a\": \"\xFF\"}", "broken JSON: a.json:1:8: expected a value, found invalid "
                                       "string: ill-formed UTF-8 byte\n  {\"a\": \"?\"}\n"
                                       "         ^\n");
    expectRefused("{\"\xC3(\": 1}", "broken JSON: a.json:1:4: expected a string, found invalid "
                                    "string: ill-formed UTF-8 byte\n  {\"?(\": 1}\n     ^\n");
}

TEST_F(BadInputTest, FilesWithoutSettingsAreRefused) {
    expectRefused("", "empty file: a.json: expected JSON, at least {}\n");
    expectRefused(" \n\t\n", "empty file: a.json: expected JSON, at least {}\n");
    expectRefused("5", "no settings file: a.json: expected an object or an array, found a single "
                       "value\n");
    expectRefused("\"x\"", "no settings file: a.json: expected an object or an array, found a "
                           "single value\n");
}

TEST_F(BadInputTest, LimitsAreMessagesNotCrashes) {
    write("deep.json", std::string(100000, '['));
    const Result deep = run({"--file", "deep.json", "list"});
    EXPECT_EQ(deep.exitCode, 2);
    EXPECT_EQ(deep.errors.find("vorn-settings: nested too deep: deep.json:1:1001: expected at most "
                               "1000 levels\n"),
              0u);
    write("a.json", std::string(1000, '[') + std::string(1000, ']'));
    EXPECT_EQ(run({"--file", "a.json", "dump"}).exitCode, 0);
    expectRefused("[1e999]", "number out of range: a.json:1:2: expected a 64-bit float\n"
                             "  [1e999]\n   ^\n");
}

// Each is left out with a warning, and refused with --strict.
TEST_F(BadInputTest, WhatSettingsCannotHoldIsLeftOutOrRefused) {
    struct Case {
        std::string text;
        std::string place;
        std::string list;
    };
    const std::vector<Case> cases = {
        {R"({"a": {"b": null}, "x": 1})", "1:13: expected no null at /a/b", "a/\nx\n"},
        {R"(["x", null])", "1:7: expected no null at /1", "0\n"},
        {R"({"a/b": {"c": null}, "x": 1})", "1:2: expected no name with \"/\" at /a/b", "x\n"},
        {R"({"x": {"/": 1}})", "1:8: expected no name with \"/\" at /x//", "x/\n"},
        {R"({"": 1})", "1:2: expected no empty name at /", ""},
        {R"({"x": {"": {}}})", "1:8: expected no empty name at /x/", "x/\n"},
        {R"({"x": 9223372036854775808})", "1:7: expected no integer past 64 bits at /x", ""},
        {R"({"x": -9223372036854775809})", "1:7: expected no integer past 64 bits at /x", ""},
        {R"({"x": 1, "y": 1, "x": 2})", "1:18: expected no repeated name at /x", "y\nx\n"},
        {R"({"x": "a\u0000b"})", "1:7: expected no text with a zero character at /x", ""},
    };
    for (const Case& row : cases) {
        write("a.json", row.text);
        const Result lenient = run({"--file", "a.json", "list"});
        EXPECT_EQ(lenient.exitCode, 0);
        EXPECT_EQ(lenient.output, row.list) << row.text;
        EXPECT_EQ(lenient.errors,
                  "vorn-settings: warning: 1 value left out: a.json:" + row.place + "\n");

        const Result strict = run({"--strict", "--file", "a.json", "list"});
        EXPECT_EQ(strict.exitCode, 2);
        EXPECT_EQ(strict.output, "");
        EXPECT_EQ(
            strict.errors.find("vorn-settings: cannot be a setting: a.json:" + row.place + "\n"),
            0u)
            << strict.errors;
        EXPECT_EQ(run({"--strict", "--file", "a.json", "set", "/z", "1"}).exitCode, 2);
        EXPECT_EQ(read("a.json"), row.text);
    }
}

TEST_F(BadInputTest, OneWarningCountsTheCasesOfAllFiles) {
    write("a.json", R"({"x": [null, null], "y": 1})");
    write("b.json", R"({"z": null})");
    const Result result = run({"--file", "a.json", "--file", "b.json", "get", "/y"});
    EXPECT_EQ(result.output, "1\n");
    EXPECT_EQ(result.errors, "vorn-settings: warning: 3 values left out: a.json:1:8: expected no "
                             "null at /x/0\n");
}

TEST_F(BadInputTest, FilesThatCannotBeReadAreNamed) {
    std::filesystem::create_directory(directory / "folder");
    write("a.json", "{}");
    for (const Words& rest : {Words{"get", "/x"}, Words{"set", "/x", "1"}}) {
        const auto with = [&rest](const std::string& file) {
            Words all = {"--file", file};
            all.insert(all.end(), rest.begin(), rest.end());
            return all;
        };
        expectFailure(with("none.json"), 2,
                      "cannot read file: none.json: expected an existing "
                      "file (No such file or directory)\n");
        expectFailure(with("folder"), 2,
                      "cannot read file: folder: expected a file, found a directory\n");
        expectFailure(with("a.json/b"), 2,
                      "cannot read file: a.json/b: expected a readable file (Not a directory)\n");
    }
}

TEST_F(BadInputTest, PermissionsAreRespected) {
    surroundings.isRestrained = true;
    write("a.json", "{\"x\": 1}");
    chmod((directory / "a.json").c_str(), 0);
    expectFailure({"--file", "a.json", "get", "/x"}, 2,
                  "cannot read file: a.json: expected a readable file (Permission denied)\n");
    chmod((directory / "a.json").c_str(), 0644);
    chmod(directory.c_str(), 0555);
    const std::string place = std::filesystem::canonical(directory / "a.json");
    expectFailure({"--file", "a.json", "set", "/x", "2"}, 2,
                  "cannot write file: " + place +
                      ": expected a writable directory (Permission "
                      "denied)\n");
    expectFailure({"--file", "a.json", "reset", "/x"}, 2,
                  "cannot write file: " + place +
                      ": expected a writable directory (Permission "
                      "denied)\n");
    chmod(directory.c_str(), 0755);
}

TEST_F(BadInputTest, AFileWithoutRoomStaysAsItIs) {
    surroundings.fileSizeLimit = 100;
    write("a.json", "{\"x\": \"" + std::string(80, '-') + "\"}");
    const std::string place = std::filesystem::canonical(directory / "a.json");
    for (const size_t length : {20u, 100000u}) {
        expectFailure({"--file", "a.json", "set", "/y", std::string(length, '-')}, 2,
                      "cannot write file: " + place +
                          ": expected room for the new text (File too large)\n");
    }
}

TEST_F(BadInputTest, OutputThatIsNotTakenIsAnError) {
    surroundings.output = "/dev/full";
    write("a.json", "{\"x\": 1}");
    for (const Words& rest : {Words{"get", "/x"}, Words{"dump"}}) {
        Words all = {"--file", "a.json"};
        all.insert(all.end(), rest.begin(), rest.end());
        expectFailure(all, 2,
                      "cannot write: standard output: expected room for the output (No "
                      "space left on device)\n");
    }
}

TEST_F(BadInputTest, MissingSettingsAreNotFound) {
    write("a.json", "{\"x\": {\"y\": 1}}");
    const auto notFound = [](const std::string& path) {
        return "no such setting: " + path + ": expected a path that list -r shows\n";
    };
    for (const std::string command : {"get", "type", "list", "dump", "reset"}) {
        expectFailure({"--file", "a.json", command, "/nope"}, 1, notFound("/nope"));
        expectFailure({"--file", "a.json", command, "x/y/z"}, 1, notFound("/x/y/z"));
    }
    expectFailure({"--file", "a.json", "list", "/x/y"}, 1,
                  "nothing below: /x/y: expected an inner node, found a value\n");
}

TEST_F(BadInputTest, UsageIsExplained) {
    write("a.json", "{\"x\": 1}");
    const std::string commands =
        "expected get, set, type, list, dump, reset, merge, diff, watch, shell\n";
    expectFailure({"frob"}, 2, "unknown command: frob: " + commands);
    expectFailure({"--file", "a.json", "frob", "/x"}, 2, "unknown command: frob: " + commands);
    expectFailure({"--frob"}, 2, "unknown option: --frob: " + commands);
    expectFailure({"get", "/x"}, 2, "no file: get: expected --file FILE\n");
    expectFailure({"--file", "a.json", "get"}, 2,
                  "PATH is required: get: expected get [--json] PATH\n");
    expectFailure({"--file", "a.json", "set", "/x"}, 2,
                  "VALUE is required: set: expected set [--type TYPE] [--dry-run] PATH VALUE\n");
    expectFailure({"--file", "a.json", "get", "--frob", "/x"}, 2,
                  "The following argument was not expected: --frob: get: expected get [--json] "
                  "PATH\n");
    expectFailure({"--file", "a.json", "get", "/x//y"}, 2,
                  "bad path: /x//y: expected a name between \"/\" and \"/\"\n");
    expectFailure({"--file", "a.json", "set", "\xFF", "1"}, 2,
                  "bad path: \xFF: expected names in UTF-8\n");
    EXPECT_EQ(run({}).exitCode, 2);
}

} // namespace
