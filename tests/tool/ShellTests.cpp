// The shell, as a script runner and at a prompt.
#include "ToolFixture.h"

#include <csignal>

using vorn::test::Process;
using vorn::test::Result;
using vorn::test::ToolTest;

namespace {

class ShellTest : public ToolTest {
protected:
    ShellTest() {
        write("a.json", "{\n  \"x\": {\"y\": 4, \"list\": [1, 2]},\n  \"other\": 1\n}\n");
    }
    std::string script(const std::string& lines) const {
        return outputOf({"--file", "a.json", "shell"}, lines);
    }
};

TEST_F(ShellTest, AWatchPrintsEventsAsTheyCome) {
    EXPECT_EQ(script("watch /x\n"
                     "set /x/y 5\n"
                     "set /other 2\n"
                     "set /x/new/z hello world\n"
                     "set /x/list [1, 7]\n"
                     "reset --force /x/new\n"
                     "set /x/y {\"in\": 1}\n"
                     "set /x/y 5\n"
                     "unwatch /x\n"
                     "set /x/y 6\n"
                     "get /x/y\n"),
              "changed /x/y: 4 -> 5\n"
              "created /x/new/z: unset -> \"hello world\"\n"
              "changed /x/list/1: 2 -> 7\n"
              "destroyed /x/new/\n"
              "destroyed /x/new/z: \"hello world\" -> unset\n"
              "destroyed /x/y: 5 -> unset\n"
              "created /x/y/\n"
              "created /x/y/in: unset -> 1\n"
              "destroyed /x/y/in: 1 -> unset\n"
              "changed /x/y: {} -> 5\n"
              "6\n");
}

TEST_F(ShellTest, TheRootAndASingleValueCanBeWatched) {
    EXPECT_EQ(script("watch\nset /top 1\nset /x/y 5\n"), "created /top: unset -> 1\n"
                                                         "changed /x/y: 4 -> 5\n");
    EXPECT_EQ(script("watch /x/y\nset /x/list/0 1\nset /x/y 5\nreset /x/y\n"),
              "changed /x/y: 4 -> 5\n"
              "destroyed /x/y: 5 -> unset\n");
    EXPECT_EQ(script("watch --json /x/y\nset /x/y \"a\\\"b\"\n"),
              "{\"event\":\"changed\",\"path\":\"/x/y\",\"old\":4,\"new\":\"a\\\"b\"}\n");
}

TEST_F(ShellTest, ATransactionIsOneStepAtItsCommit) {
    EXPECT_EQ(script("watch /x\n"
                     "begin\n"
                     "set /x/y 5\n"
                     "set /x/z true\n"
                     "get /x/y\n"
                     "commit\n"
                     "get /x/y\n"
                     "begin\n"
                     "set /x/y 6\n"
                     "abort\n"
                     "get /x/y\n"
                     "save\n"),
              "4\n"
              "changed /x/y: 4 -> 5\n"
              "created /x/z: unset -> true\n"
              "5\n"
              "5\n");
    EXPECT_EQ(read("a.json"),
              "{\n  \"x\": {\"y\": 5, \"list\": [1, 2], \"z\": true},\n  \"other\": 1\n}\n");
}

TEST_F(ShellTest, ACommitOverANodeForgetsWhatWasBelowIt) {
    EXPECT_EQ(script("watch\nbegin\nset /x 1\ncommit\nset /x/y 2\n"), "changed /x: {} -> 1\n"
                                                                      "created /x/y: unset -> 2\n");
}

TEST_F(ShellTest, TransactionsAreUsedInOrder) {
    const Result result = run({"--file", "a.json", "shell"}, "commit\n"
                                                             "begin\n"
                                                             "begin\n"
                                                             "set /x/list [1]\n"
                                                             "reset /x/y\n");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors,
              "vorn-settings: line 1: no transaction: commit: expected begin before it\n"
              "vorn-settings: line 3: transaction open: begin: expected commit or abort before it\n"
              "vorn-settings: line 4: not for a transaction: /x/list: expected a bool, number or "
              "string between begin and commit\n"
              "vorn-settings: line 5: not for a transaction: reset: expected commit or abort "
              "before it\n"
              "vorn-settings: transaction open: end of script: expected commit or abort\n");
}

TEST_F(ShellTest, AScriptGoesOnAfterALineThatFails) {
    const std::string lines = "# a comment, then an empty line\n\n"
                              "get /nope\n"
                              "get /x/y\n";
    const Result result = run({"--file", "a.json", "shell"}, lines);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "4\n");
    EXPECT_EQ(result.errors, "vorn-settings: line 3: no such setting: /nope: expected a path that "
                             "list -r shows\n");

    EXPECT_EQ(run({"--file", "a.json", "shell"}, "frob\n" + lines).exitCode, 2) << "the worst";
    const Result stopped = run({"--file", "a.json", "shell", "--stop-on-error"}, lines);
    EXPECT_EQ(stopped.exitCode, 1);
    EXPECT_EQ(stopped.output, "");
    EXPECT_EQ(script("get /x/y\nquit\nget /nope\n"), "4\n");
}

TEST_F(ShellTest, WordsMayBeQuotedAndValuesAreTheRestOfTheLine) {
    EXPECT_EQ(script("set \"/a b\" \"quoted\"\r\n"
                     "get '/a b'\n"
                     "set --type string /n  1  \n"
                     "get --json /n\n"
                     "set /dash -x --y\n"
                     "get /dash\n"),
              "quoted\n\"1\"\n-x --y\n");
    EXPECT_EQ(run({"shell"}, "get \"/a\n").errors,
              "vorn-settings: line 1: open quote: \"/a: expected \" at its end\n");
}

TEST_F(ShellTest, LoadAndSaveMoveSettingsBetweenFiles) {
    write("b.json", R"({"other": 2, "more": 3})");
    EXPECT_EQ(script("watch /other\n"
                     "load --keep b.json\n"
                     "get /more\n"
                     "load b.json\n"
                     "save --dry-run new.json\n"
                     "save new.json\n"),
              "3\nchanged /other: 1 -> 2\n"
              "/x/y: unset -> 4\n/x/list/0: unset -> 1\n/x/list/1: unset -> 2\n"
              "/other: unset -> 2\n/more: unset -> 3\n");
    EXPECT_EQ(read("new.json"), "{\n  \"x\": {\n    \"y\": 4,\n    \"list\": [\n      1,\n      2\n"
                                "    ]\n  },\n  \"other\": 2,\n  \"more\": 3\n}\n");
    EXPECT_EQ(script("reset /other\nsave\nsave\n"), "") << "what is saved was to be saved again";
    EXPECT_EQ(run({"shell"}, "set /a 1\nsave\n").errors,
              "vorn-settings: line 2: no file: save: expected save FILE, or load before it\n");
}

TEST_F(ShellTest, SaveWritesTheEditsToTheFileAsItIsByThen) {
    Process shell(command({"--file", "a.json", "shell"}), surroundings);
    shell.write("set /x/y 5\nget /x/y\n");
    shell.write("set /other [null\nget /other\n"); // an error, to see the end of both
    ASSERT_TRUE(shell.waitForErrors("line 3"));
    write("a.json", "{\"x\": {}, \"edited\": \"elsewhere\"}");
    shell.write("save\n");
    shell.closeInput();
    EXPECT_EQ(shell.wait(), 2);
    EXPECT_EQ(read("a.json"), "{\"x\": {\"y\": 5}, \"edited\": \"elsewhere\"}");
}

TEST_F(ShellTest, ThePromptCompletesAndRemembers) {
    surroundings.hasTerminal = true;
    Process shell(command({"--color", "never", "--file", "a.json", "shell"}), surroundings);
    const auto answer = [&shell](const std::string& keys, const std::string& expected) {
        EXPECT_TRUE(shell.waitForOutput("vorn> ")) << shell.output();
        shell.write(keys);
        EXPECT_TRUE(shell.waitForOutput(expected)) << shell.output();
    };
    answer("ge\t/x/y\t\r", "\n4\r\n");         // a command, and a path as far as it goes
    answer("list /\t\t", "/x/\r\n/other\r\n"); // several matches
    answer("frob\x03", "^C\r\n");              // given up
    answer("watch /x\r", "\n");
    answer("set /x/y 5\r", "changed /x/y: 4 -> 5\r\n");
    answer("\x1b[A\r", "changed /x/y: 5 -> 5\r\n"); // the line before, again
    answer("q\t", "uit");    // the editor is at work, so that the next keys are its own
    shell.write("\x15\x04"); // wipe the line; end of input
    EXPECT_EQ(shell.wait(), 0) << shell.output();
}

} // namespace
