// The shell, as a script runner and at a prompt.
#include "ToolFixture.h"

using namespace vorn::test;

class ShellTest : public ToolTest {
protected:
    ShellTest() {
        write("a.json", "{\n  \"x\": {\"y\": 4, \"list\": [1, 2]},\n  \"other\": 1\n}\n");
    }
    // What it prints and says.
    std::string script(const std::string& lines, int exitCode = 0) const {
        const Result result = run(onFile({"shell"}), lines);
        EXPECT_EQ(result.exitCode, exitCode);
        return result.output + result.errors;
    }
};

TEST_F(ShellTest, AWatchPrintsEventsAsTheyComeAlsoOfTheRootOrASingleValue) {
    EXPECT_EQ(script("watch /x\nset /x/y 5\nset /other 2\nset /x/new/z hello world\n"
                     "set /x/list [1, 7]\nreset --force /x/new\n"
                     "reset /x/list/1\nset /x/list/1 8\n"
                     "set /x/y {\"in\": 1}\nset /x/y 5\nunwatch /x\nset /x/y 6\nget /x/y\n"),
              "changed /x/y: 4 -> 5\ncreated /x/new/z: unset -> \"hello world\"\n"
              "changed /x/list/1: 2 -> 7\ndestroyed /x/new/\n"
              "destroyed /x/new/z: \"hello world\" -> unset\n"
              "destroyed /x/list/1: 7 -> unset\ncreated /x/list/1: unset -> 8\n"
              "destroyed /x/y: 5 -> unset\ncreated /x/y/\ncreated /x/y/in: unset -> 1\n"
              "destroyed /x/y/in: 1 -> unset\nchanged /x/y: {} -> 5\n6\n");
    EXPECT_EQ(script("watch\nset /top 1\nbegin\nset /x 1\ncommit\nset /x/y 2\n"),
              "created /top: unset -> 1\nchanged /x: {} -> 1\ncreated /x/y: unset -> 2\n");
    EXPECT_EQ(script("watch --json /x/y\nset /x/list/0 1\nset /x/y \"a\\\"b\"\n"),
              "{\"event\":\"changed\",\"path\":\"/x/y\",\"old\":4,\"new\":\"a\\\"b\"}\n");
}

TEST_F(ShellTest, ATransactionIsOneStepAtItsCommitAndUsedInOrder) {
    EXPECT_EQ(script("watch /x\nbegin\nset /x/y 5\nset /x/z true\nget /x/y\ncommit\nget /x/y\n"
                     "begin\nset /x/y 6\nabort\nget /x/y\nsave\n"),
              "4\nchanged /x/y: 4 -> 5\ncreated /x/z: unset -> true\n5\n5\n");
    EXPECT_EQ(read("a.json"),
              "{\n  \"x\": {\"y\": 5, \"list\": [1, 2], \"z\": true},\n  \"other\": 1\n}\n");
    EXPECT_EQ(script("commit\nbegin\nbegin\nset /x/list [1]\n", 2),
              "vorn-settings: line 1: no transaction: commit: expected begin before it\n"
              "vorn-settings: line 3: transaction open: begin: expected commit or abort before it\n"
              "vorn-settings: line 4: not for a transaction: /x/list: expected a bool, number or "
              "string between begin and commit\n"
              "vorn-settings: transaction open: end of script: expected commit or abort\n");
}

TEST_F(ShellTest, AScriptGoesOnAfterALineThatFails) {
    const std::string lines = "# a comment, then an empty line\n\nget /nope\nget /x/y\n";
    EXPECT_EQ(script(lines, 1), "4\nvorn-settings: line 3: no such setting: /nope: expected a path "
                                "that list -r shows\n");
    script("frob\n" + lines, 2); // the worst
    const Result stopped = run(onFile({"shell", "--stop-on-error"}), lines);
    EXPECT_TRUE(stopped.exitCode == 1 && stopped.output.empty()) << stopped.output;
    EXPECT_EQ(script("get /x/y\nquit\nget /nope\n"), "4\n");
}

TEST_F(ShellTest, WordsMayBeQuotedAndValuesAreTheRestOfTheLine) {
    EXPECT_EQ(script("set \"/a b\" \"quoted\"\r\nget '/a b'\nset --type string /n  1  \n"
                     "get --json /n\nset /dash -x --y\nget /dash\n"),
              "quoted\n\"1\"\n-x --y\n");
}

TEST_F(ShellTest, LoadAndSaveMoveSettingsBetweenFilesAsTheyAreByThen) {
    write("b.json", R"({"other": 2, "more": 3})");
    EXPECT_EQ(script("watch /other\nload --keep b.json\nget /more\nload b.json\nsave new.json\n"),
              "3\nchanged /other: 1 -> 2\n");
    EXPECT_EQ(onOneLine(read("new.json")), R"({"x":{"y":4,"list":[1,2]},"other":2,"more":3})");
    EXPECT_EQ(script("reset /other\nsave --dry-run --json\nsave\nsave --dry-run\n"),
              "[{\"path\":\"/other\",\"old\":1,\"new\":null}]\n");
    EXPECT_EQ(run({"shell"}, "set /a 1\nsave\n").errors,
              "vorn-settings: line 2: no file: save: expected save FILE, or load before it\n");

    Process shell(onFile({"shell"}), surroundings);
    shell.write("set /x/y 5\nset /other [null\n"); // an error, to see the end of both
    ASSERT_TRUE(shell.waitFor("line 2"));
    write("a.json", "{\"x\": {}, \"edited\": \"elsewhere\"}");
    shell.write("save\n");
    shell.closeInput();
    EXPECT_EQ(shell.wait(), 2);
    EXPECT_EQ(read("a.json"), "{\"x\": {\"y\": 5}, \"edited\": \"elsewhere\"}");
}

TEST_F(ShellTest, ThePromptCompletesAndRemembers) {
    surroundings.hasTerminal = true;
    Process shell({"--color", "never", "--file", "a.json", "shell"}, surroundings);
    for (const auto& [keys, answer] : std::initializer_list<std::pair<const char*, const char*>>{
             {"ge\t/x/y\t\r", "\n4\r\n"},         // a command, and a path as far as it goes
             {"list /\t\t", "/x/\r\n/other\r\n"}, // several matches
             {"frob\x03", "^C\r\n"},              // given up
             {"watch /x\r", "\n"},
             {"set /x/y 5\r", "changed /x/y: 4 -> 5\r\n"},
             {"\x1b[A\r", "changed /x/y: 5 -> 5\r\n"}, // the line before, again
             {"set \"/a b\" blank\r", "\n"},
             {"get --j\t/a\t\r", "\n\"blank\"\r\n"}, // an option, and a path that wants quotes
             {"q\t", "uit"}, // the editor is at work, so that the next keys are its own
         }) {
        EXPECT_TRUE(shell.waitFor("vorn> ")) << shell.output;
        shell.write(keys);
        EXPECT_TRUE(shell.waitFor(answer)) << shell.output;
    }
    shell.write("\x15\x04"); // wipe the line; end of input
    EXPECT_EQ(shell.wait(), 0) << shell.output;
    EXPECT_NE(read("vorn-settings/history").find("watch"), std::string::npos);
}
