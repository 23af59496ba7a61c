// Bad input and bad usage: one clear message, the right exit code, and no file touched.
#include "ToolFixture.h"

#include <sys/stat.h>

using vorn::test::Result;
using vorn::test::ToolTest;

namespace {

class BadInputTest : public ToolTest {
protected:
    // A file is refused by what reads and by what writes, strict or not.
    void expectRefused(const std::string& file, const std::string& message) const {
        expectFailure(onFile({"get", "/x"}, file), 2, message);
        expectFailure(onFile({"set", "/x", "1"}, file), 2, message);
        expectFailure(onFile({"--strict", "get", "/x"}, file), 2, message);
    }
};

TEST_F(BadInputTest, BrokenJsonIsShownWithItsPlace) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{\n  \"a\": 1,\n  \"ü\" 2\n}\n",
         "broken JSON: a.json:3:7: expected ':', found a number\n    \"ü\" 2\n        ^\n"},
        {"[1,,2]", "broken JSON: a.json:1:4: expected a value, found ','\n  [1,,2]\n     ^\n"},
        {"\t{\"a\": tru}", "broken JSON: a.json:1:8: expected a value, found invalid literal\n"
                           "  \t{\"a\": tru}\n  \t      ^\n"},
        {"{\"a\": 1\n\n", "broken JSON: a.json:1:8: expected ',' or '}', found end of input"},
        {"{} {}", "broken JSON: a.json:1:4: expected end of input, found '{'"},
        {"{\"\xC3(\": 1}", "broken JSON: a.json:1:4: expected a string, found invalid string: "
                           "ill-formed UTF-8 byte\n  {\"?(\": 1}\n     ^\n"},
        {"[\"" + std::string(500, 'x') + "\" " + std::string(500, 'y'),
         "broken JSON: a.json:1:505: expected ',' or ']', found invalid literal\n  " +
             std::string(58, 'x') + "\" " + std::string(60, 'y') + "\n  " + std::string(60, ' ') +
             "^\n"},
        {std::string(100000, '['), "nested too deep: a.json:1:1001: expected at most 1000 levels"},
        {"[1e999]", "number out of range: a.json:1:2: expected a 64-bit float\n  [1e999]\n   ^\n"},
        {" \n\t\n", "empty file: a.json: expected JSON, at least {}\n"},
        {"5", "no settings file: a.json: expected an object or an array, found a single value\n"},
    };
    for (const auto& [text, message] : cases) {
        write("a.json", text);
        expectRefused("a.json", message);
    }
    write("a.json", std::string(1000, '[') + std::string(1000, ']'));
    EXPECT_EQ(run(onFile({"dump"})).exitCode, 0);
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
        {R"({"x": {"": {}}})", "1:8: expected no empty name at /x/", "x/\n"},
        {R"({"x": 9223372036854775808})", "1:7: expected no integer past 64 bits at /x", ""},
        {R"({"x": -9223372036854775809})", "1:7: expected no integer past 64 bits at /x", ""},
        {R"({"x": 1, "y": 1, "x": 2})", "1:18: expected no repeated name at /x", "y\nx\n"},
        {R"({"x": "a\u0000b"})", "1:7: expected no text with a zero character at /x", ""},
    };
    for (const Case& row : cases) {
        write("a.json", row.text);
        const Result lenient = run(onFile({"list"}));
        EXPECT_EQ(lenient.exitCode, 0);
        EXPECT_EQ(lenient.output, row.list) << row.text;
        EXPECT_EQ(lenient.errors,
                  "vorn-settings: warning: 1 value left out: a.json:" + row.place + "\n");

        const std::string message = "cannot be a setting: a.json:" + row.place;
        expectFailure(onFile({"--strict", "list"}), 2, message);
        expectFailure(onFile({"--strict", "set", "/z", "1"}), 2, message);
    }
}

TEST_F(BadInputTest, FilesThatCannotBeReadAreNamed) {
    write("a.json", "{}");
    for (const std::string file : {"none.json", "none/a.json"}) {
        expectRefused(file, "cannot read file: " + file +
                                ": expected an existing file (No such file or directory)\n");
    }
    std::filesystem::create_directory(directory / "folder");
    for (const std::string file : {"folder", "."}) {
        expectRefused(file, "cannot read file: " + file + ": expected a file, found a directory\n");
    }
}

TEST_F(BadInputTest, PermissionsAreRespected) {
    surroundings.isRestrained = true;
    write("a.json", "{\"x\": 1}");
    chmod((directory / "a.json").c_str(), 0);
    expectFailure(onFile({"get", "/x"}), 2,
                  "cannot read file: a.json: expected a readable file (Permission denied)\n");
    chmod((directory / "a.json").c_str(), 0644);
    chmod(directory.c_str(), 0555);
    const std::string place = std::filesystem::canonical(directory / "a.json");
    expectFailure(onFile({"set", "/x", "2"}), 2,
                  "cannot write file: " + place +
                      ": expected a writable directory (Permission denied)\n");
    chmod(directory.c_str(), 0755);
}

TEST_F(BadInputTest, AFileWithoutRoomStaysAsItIs) {
    surroundings.fileSizeLimit = 100;
    write("a.json", "{\"x\": \"" + std::string(80, '-') + "\"}");
    const std::string place = std::filesystem::canonical(directory / "a.json");
    for (const size_t length : {20u, 100000u}) {
        expectFailure(onFile({"set", "/y", std::string(length, '-')}), 2,
                      "cannot write file: " + place +
                          ": expected room for the new text (File too large)\n");
    }
}

TEST_F(BadInputTest, OutputThatIsNotTakenIsAnError) {
    surroundings.output = "/dev/full";
    write("a.json", "{\"x\": 1}");
    expectFailure(onFile({"dump"}), 2,
                  "cannot write: standard output: expected room for the output (No space left on "
                  "device)\n");
}

TEST_F(BadInputTest, MissingSettingsAreNotFound) {
    write("a.json", "{\"x\": {\"y\": 1}}");
    for (const std::string command : {"get", "type", "list", "dump", "reset"}) {
        expectFailure(onFile({command, "x/y/z"}), 1,
                      "no such setting: /x/y/z: expected a path that list -r shows\n");
    }
    expectFailure(onFile({"list", "/x/y"}), 1,
                  "nothing below: /x/y: expected an inner node, found a value\n");
}

TEST_F(BadInputTest, UsageIsExplained) {
    write("a.json", "{\"x\": 1}");
    const std::string commands =
        "expected get, set, type, list, dump, reset, merge, diff, watch, shell\n";
    expectFailure({"frob"}, 2, "unknown command: frob: " + commands);
    expectFailure(onFile({"frob", "/x"}), 2, "unknown command: frob: " + commands);
    expectFailure({"--frob"}, 2, "unknown option: --frob: " + commands);
    expectFailure({"get", "/x"}, 2, "no file: get: expected --file FILE\n");
    expectFailure(onFile({"set", "/x"}), 2,
                  "VALUE is required: set: expected set [--type TYPE] [--dry-run] PATH VALUE\n");
    expectFailure(onFile({"get", "/x//y"}), 2,
                  "bad path: /x//y: expected a name between \"/\" and \"/\"\n");
    EXPECT_EQ(run({}).exitCode, 2);
}

} // namespace
