// Bad input and bad usage: one clear message, the right exit code, and no file touched.
#include "ToolFixture.h"

#include <sys/stat.h>

using namespace vorn::test;
using namespace std::string_literals;

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
    const std::string x58(58, 'x'), y60(60, 'y');
    const std::pair<std::string, std::string> rows[] = {
        {"{\n  \"a\": 1,\n  \"ü\" 2\n}\n",
         "broken JSON: a.json:3:7: expected ':', found a number\n    \"ü\" 2\n        ^\n"},
        {"\t{\"a\": tru}", "broken JSON: a.json:1:8: expected a value, found invalid literal\n"
                           "  \t{\"a\": tru}\n  \t      ^\n"},
        {"{\"a\": 1\n\n", "broken JSON: a.json:1:8: expected ',' or '}', found end of input"},
        {"{}\0{}"s, "broken JSON: a.json:1:3: expected text, found a zero byte\n  {}?{}\n    ^\n"},
        {"{\"\xC3(\": 1}", "broken JSON: a.json:1:4: expected a string, found invalid string: "
                           "ill-formed UTF-8 byte\n  {\"?(\": 1}\n     ^\n"},
        {"[\"" + x58 + x58 + "\" " + y60 + y60,
         "broken JSON: a.json:1:121: expected ',' or ']', found invalid literal\n  " + x58 + "\" " +
             y60 + "\n  " + std::string(60, ' ') + "^\n"},
        {std::string(100000, '['), "nested too deep: a.json:1:1001: expected at most 1000 levels"},
        {"[1e999]", "number out of range: a.json:1:2: expected a 64-bit float\n  [1e999]\n   ^\n"},
        {" \n\t\n", "empty file: a.json: expected JSON, at least {}\n"},
        {"5", "no settings file: a.json: expected an object or an array, found a single value\n"},
    };
    for (const auto& [text, message] : rows) {
        write("a.json", text);
        expectRefused("a.json", message);
    }
    write("a.json", std::string(1000, '[') + std::string(1000, ']'));
    EXPECT_EQ(run(onFile({"dump"})).exitCode, 0);
    expectFailure(onFile({"set", "/x/y", std::string(999, '[') + std::string(999, ']')}), 2,
                  "nested too deep: set: expected at most 1000 levels\n");
}

// Each is left out with a warning, and refused with --strict.
TEST_F(BadInputTest, WhatSettingsCannotHoldIsLeftOutOrRefused) {
    const std::array<std::string, 3> rows[] = {
        {R"({"a": {"b": null}, "x": 1})", "1:13: expected no null at /a/b", "a/\nx\n"},
        {R"(["x", null])", "1:7: expected no null at /1", "0\n"},
        {R"({"a/b": {"c": null}, "x": 1})", "1:2: expected no name with \"/\" at /a/b", "x\n"},
        {R"({"x": {"": {}}})", "1:8: expected no empty name at /x/", "x/\n"},
        {R"({"x": 9223372036854775808})", "1:7: expected no integer past 64 bits at /x", ""},
        {R"({"x": 1, "y": 1, "x": 2})", "1:18: expected no repeated name at /x", "y\nx\n"},
        {R"({"x": "a\u0000b"})", "1:7: expected no text with a zero character at /x", ""},
    };
    for (const auto& [text, place, list] : rows) {
        write("a.json", text);
        const auto [exitCode, output, errors] = run(onFile({"list"}));
        EXPECT_TRUE(exitCode == 0 && output == list) << text << " listed as " << output;
        EXPECT_EQ(errors, "vorn-settings: warning: 1 value left out: a.json:" + place + "\n");
        const std::string message = "cannot be a setting: a.json:" + place;
        expectFailure(onFile({"--strict", "list"}), 2, message);
        expectFailure(onFile({"--strict", "set", "/z", "1"}), 2, message);
    }
}

TEST_F(BadInputTest, FilesThatCannotBeReadOrWrittenAreNamed) {
    write("a.json", "{\"x\": \"" + std::string(500, '-') + "\"}");
    fs::create_directory(directory / "folder");
    fs::create_symlink("none", directory / "dangling");
    mkfifo((directory / "fifo").c_str(), 0600);
    for (const std::string file : {"none.json", "none/a.json", "dangling"}) {
        expectRefused(file, "cannot read file: " + file +
                                ": expected an existing file (No such file or directory)\n");
    }
    expectRefused("folder", "cannot read file: folder: expected a file, found a directory\n");

    const std::string place = fs::canonical(directory / "a.json");
    // Permissions hold even when the tests run as root.
    const std::string restrain = "own='setpriv --bounding-set=-dac_override,-dac_read_search'; "
                                 "$own true 2>/dev/null || own=; exec $own";
    const std::tuple<std::string, Words, std::string> rows[] = {
        {"exec", {"tree", "--html", "dangling"}, "dangling: expected a link that leads to a file"},
        {"exec", {"tree", "--html", "fifo"}, "fifo: expected a regular file"},
        {"exec", {"tree", "--html", "./a.json"}, "./a.json: expected another file than that of"},
        {"ulimit -f 1; trap '' XFSZ; exec", {"set", "/y", "1234567"}, place + ": expected room"},
        {"chmod 555 .; " + restrain, {"set", "/x", "2"}, place + ": expected a writable directory"},
        {"exec >/dev/full", {"dump"}, "standard output: expected room for the output (No space"},
        {"chmod 0 a.json; " + restrain, {"get", "/x"}, "a.json: expected a readable file (Perm"},
    };
    for (const auto& [setup, arguments, message] : rows) {
        surroundings.setup = setup;
        const std::string what = arguments[0] == "get"    ? "cannot read file: "
                                 : arguments[0] == "dump" ? "cannot write: "
                                                          : "cannot write file: ";
        expectFailure(onFile(arguments), 2, what + message);
        chmod(directory.c_str(), 0755);
    }
}

TEST_F(BadInputTest, AnInterruptLeavesTheOldTextOrTheNew) {
    const std::string pad = "{\"pad\": \"" + std::string(1000000, '-') + "\", \"x\": ";
    for (int moment = 0; moment < 24; ++moment) {
        write("a.json", pad + "0}");
        Process writer(onFile({"set", "/x", "1"}), surroundings);
        usleep(static_cast<useconds_t>(moment) * 1000);
        writer.signal(moment % 2 == 0 ? SIGTERM : SIGINT);
        writer.wait();
        EXPECT_TRUE(read("a.json") == pad + "0}" || read("a.json") == pad + "1}");
        EXPECT_EQ(contents().size(), 1u) << "a temporary file was left";
    }
}

TEST_F(BadInputTest, UsageAndMissingSettingsAreExplained) {
    write("a.json", "{\"x\": {\"y\": 1}}");
    const std::string commands =
        "expected get, set, type, list, dump, tree, reset, merge, diff, watch, shell\n";
    const std::tuple<Words, int, std::string> rows[] = {
        {{"frob"}, 2, "unknown command: frob: " + commands},
        {{"--frob"}, 2, "unknown option: --frob: " + commands},
        {{}, 2, "no command: command line: expected --help, or one of "},
        {{"get", "/x"}, 2, "no file: get: expected --file FILE\n"},
        {onFile({"set", "--type=json", "/v", "null "}), 2, ""},
        {onFile({"set", "--type", "int", "/v", "1.5"}), 2, ""},
        {onFile({"set", "/v", "99999999999999999999"}), 2, ""},
        {onFile({"set", "/v", "\xFF"}), 2, ""},
        {onFile({"set", "/x"}), 2, "VALUE is required: set: expected set [--type TYPE] "},
        {onFile({"get", "/x//y"}), 2, "bad path: /x//y: expected a name between \"/\" and \"/\"\n"},
        {onFile({"tree", "x/y/z"}), 1, "no such setting: /x/y/z: expected a path that list -r"},
        {onFile({"list", "/x/y"}), 1, "nothing below: /x/y: expected an inner node, found a"},
    };
    for (const auto& [arguments, exitCode, message] : rows) {
        expectFailure(arguments, exitCode, message);
    }
}
