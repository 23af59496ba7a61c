// Reading settings: get, type, list, dump, tree, files over files, whole
// files: merge and diff, and files that other programs change: watch.
#include "ToolFixture.h"

using namespace vorn::test;

static constexpr const char* kApp = R"({
  "app": {"view": {"width": 1280, "ratio": 1.50, "title": "Grüße \"x\"\n", "on": true}},
  "modes": ["day", "night"],
  "0": {"10": 1, "9": 2},
  "none": []
}
)";

using ReadTest = ToolTest;

TEST_F(ReadTest, CommandsPrintWhatIsThereInTheOrderOfTheFilesAndLaterOnesWin) {
    write("a.json", kApp);
    const std::pair<Words, std::string> rows[] = {
        {{"get", "app/view/ratio/"}, "1.5\n"},
        {{"get", "/app/view/title"}, "Grüße \"x\"\n\n"},
        {{"get", "/modes"}, "[\n  \"day\",\n  \"night\"\n]\n"},
        {{"type", "/app"}, "dictionary\n"},
        {{"type", "/app/view/width"}, "int\n"},
        {{"type", "--json", "/modes/0"}, "\"string\"\n"},
        {{"list"}, "app/\nmodes/\n0/\nnone/\n"},
        {{"list", "--sort"}, "0/\napp/\nmodes/\nnone/\n"},
        {{"list", "/0"}, "10\n9\n"},
        {{"list", "-r", "/modes"}, "/modes/0\n/modes/1\n"},
        {{"list", "--json", "/"}, "[\"app/\",\"modes/\",\"0/\",\"none/\"]\n"},
        {{"--color", "always", "list", "/app"}, "\033[1;34mview/\033[0m\n"},
        {{"tree", "--depth", "1", "--sort", "/app/view", "--width", "18"},
         "/app/view/  {4}\n├── on     bool  …\n├── ratio  float …\n├── title  string…\n"
         "└── width  int   …\n\n0 dictionaries, 0…\n"},
    };
    for (const auto& [arguments, output] : rows) {
        EXPECT_EQ(outputOf(onFile(arguments)), output) << testing::PrintToString(arguments);
    }
    write("b.json", R"({"app": {"view": 2}, "modes": {"1": "dusk"}, "0": {"9": 3}, "none": 3})");
    EXPECT_EQ(onOneLine(outputOf({"dump", "--file", "a.json", "--file", "b.json"})),
              R"({"app":{"view":2},"modes":["day","dusk"],"0":{"10":1,"9":3},"none":3})");
}

TEST_F(ReadTest, APictureAsJsonOrPageHoldsEveryValue) {
    write("a.json", kApp);
    EXPECT_EQ(onOneLine(outputOf(onFile({"tree", "--json", "--depth", "1", "/0"}))),
              R"({"type":"dictionary","count":2,"children":{"10":{"type":"int","value":1},)"
              R"("9":{"type":"int","value":2}}})");
    write("a.json", R"({"n": 9007199254740993, "<!--\u0007福": "\"</SCRIPT>", "l": [[]]})");
    EXPECT_EQ(outputOf(onFile({"tree", "--html", "page.html"})), "");
    const std::string page = read("page.html");
    EXPECT_EQ(outputOf(onFile({"tree", "--html", "-"})), page);
    const size_t begin = page.find("{\"title\"");
    EXPECT_EQ(onOneLine(page.substr(begin, page.find('<', begin) - begin)),
              onOneLine(R"({"title": "a.json", "path": "/", "tree": ["", "dictionary", [
                  ["n", "int", "9007199254740993"], ["<!--\u0007福", "string", "\"</SCRIPT>"],
                  ["l", "array", [["0", "dictionary", []]]]]]})"));
}

TEST_F(ReadTest, DumpAndLoadIsTheIdentityOnRealFiles) {
    const fs::path real = "/usr/share/iso-codes/json";
    if (!fs::exists(real)) {
        GTEST_SKIP() << "the package iso-codes is not installed";
    }
    for (const auto& entry : fs::directory_iterator(real)) {
        const std::string file = entry.path(), dumped = outputOf(onFile({"dump"}, file));
        fs::copy_file(file, directory / "real.json", fs::copy_options::overwrite_existing);
        EXPECT_EQ(onOneLine(dumped), onOneLine(read("real.json"))) << file;
        write("dumped.json", dumped);
        EXPECT_EQ(outputOf({"diff", file, "dumped.json"}), "") << file;
    }
}

TEST_F(ReadTest, MergeTakesTheLaterOrKeepsTheEarlierAndDiffShowsOneSettingPerLine) {
    write("a.json", R"({"x": 1, "y": {"a": 1}, "v": 1, "l": [1, 2, 3]})");
    write("b.json", R"({"y": {"a": 2, "b": 2}, "v": {"w": 2}, "l": [9], "z": 2})");
    const auto before = contents();
    EXPECT_EQ(onOneLine(outputOf({"merge", "a.json", "b.json"})),
              R"({"x":1,"y":{"a":2,"b":2},"v":{"w":2},"l":[9,2,3],"z":2})");
    EXPECT_EQ(onOneLine(outputOf({"merge", "--keep", "a.json", "b.json"})),
              R"({"x":1,"y":{"a":1,"b":2},"v":1,"l":[1,2,3],"z":2})");
    EXPECT_EQ(contents(), before);

    write("a.json",
          R"({"x": 1, "t": "1", "gone": {"p": [true]}, "e": {}, "k": {"v": 1}, "s":1.0})");
    write("b.json", R"({"x": 2, "t": 1, "new": {"q": "z"}, "f": {}, "k": 5, "s": 1})");
    write("c.json", R"({"s":1.00,"x":1,"t":"\u0031","e":[],"k":{"v":1},"gone":{"p":{"0":true}}})");
    const auto [exitCode, output, errors] = run({"diff", "a.json", "b.json"});
    EXPECT_TRUE(exitCode == 1 && errors.empty()) << exitCode << errors;
    EXPECT_EQ(output, "/x: 1 -> 2\n/t: \"1\" -> 1\n/gone/p/0: true -> unset\n"
                      "/e: {} -> unset\n/k/v: 1 -> unset\n/k: unset -> 5\n"
                      "/s: 1.0 -> 1\n/new/q: unset -> \"z\"\n/f: unset -> {}\n");
    EXPECT_EQ(outputOf({"diff", "a.json", "c.json"}), "");
    EXPECT_EQ(run({"diff", "--json", "a.json", "b.json"}).output.substr(0, 31),
              R"([{"path":"/x","old":1,"new":2},)");
}

TEST_F(ReadTest, WatchSeesEveryWayOfChangingAFile) {
    write("a.json", R"({"app": {"w": 1, "t": "x"}, "other": 1})");
    write("real.json", R"({"app": {"w": 2}})");
    fs::create_symlink("real.json", directory / "b.json");
    Process watch({"--file", "a.json", "--file", "b.json", "watch", "/app"}, surroundings);
    ASSERT_TRUE(watch.waitFor("watching /app")) << watch.output;

    write("new", R"({"app": {"w": 1, "t": "y"}, "other": 2})");
    fs::rename(directory / "new", directory / "a.json");
    EXPECT_TRUE(watch.waitFor("\nchanged /app/t: \"x\" -> \"y\"\n"));
    write("real.json", R"({"app": {"w": 3, "n": {"k": 1}}})");
    EXPECT_TRUE(watch.waitFor("changed /app/w: 2 -> 3\ncreated /app/n/\n"
                              "created /app/n/k: unset -> 1\n"));
    outputOf(onFile({"reset", "--force", "/app/n"}, "b.json"));
    EXPECT_TRUE(watch.waitFor("destroyed /app/n/\ndestroyed /app/n/k: 1 -> unset\n"));
    write("a.json", R"({"app": )"); // what was read last stays
    EXPECT_TRUE(watch.waitFor("broken JSON: a.json:1:8:"));
    write("a.json", R"({"app": {"w": 1}})");
    EXPECT_TRUE(watch.waitFor("\ndestroyed /app/t: \"y\" -> unset\n"));
    watch.signal(SIGINT);
    EXPECT_EQ(watch.wait(), 0);
    EXPECT_EQ(std::count(watch.output.begin(), watch.output.end(), '>'), 5)
        << "nothing else was told\n"
        << watch.output;
}
