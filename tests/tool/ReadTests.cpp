// Reading settings: get, type, list, dump, files over files, and whole files: merge and diff.
#include "ToolFixture.h"

using namespace vorn::test;

static constexpr const char* kApp = R"({
  "app": {"view": {"width": 1280, "ratio": 1.50, "title": "Grüße \"x\"\n", "on": true}},
  "modes": ["day", "night"],
  "0": {"10": 1, "9": 2},
  "none": []
}
)";

class ReadTest : public ToolTest {
protected:
    ReadTest() {
        write("app.json", kApp);
    }
    std::string of(const Words& arguments) const {
        return outputOf(onFile(arguments, "app.json"));
    }
};

TEST_F(ReadTest, CommandsPrintWhatIsThereInTheOrderOfTheFilesAndLaterOnesWin) {
    const std::vector<std::pair<Words, std::string>> cases = {
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
    for (const auto& [arguments, output] : cases) {
        EXPECT_EQ(of(arguments), output) << testing::PrintToString(arguments);
    }

    write("user.json", R"({"app": {"view": 2}, "modes": {"1": "dusk"}, "0": {"9": 3}, "none": 3})");
    EXPECT_EQ(onOneLine(outputOf({"dump", "--file", "app.json", "--file", "user.json"})),
              R"({"app":{"view":2},"modes":["day","dusk"],"0":{"10":1,"9":3},"none":3})");
}

TEST_F(ReadTest, NamesMakeArraysAndNumbersKeepTheirTypeAndValue) {
    write("app.json", R"({"a": {"0": 1, "1": 2}, "b": {"1": 1}, "get": {"00": 1}, "d": [[]]})");
    EXPECT_EQ(onOneLine(of({"dump"})), R"({"a":[1,2],"b":{"1":1},"get":{"00":1},"d":[{}]})");
    EXPECT_EQ(of({"get", "get/00"}), "1\n");

    write("app.json", R"([9223372036854775807, -9223372036854775808, 1e2, -0.0, 5e-324, 0.1])");
    EXPECT_EQ(of({"dump"}), "[\n  9223372036854775807,\n  -9223372036854775808,\n  100.0,\n"
                            "  -0.0,\n  5e-324,\n  0.1\n]\n");
}

TEST_F(ReadTest, APictureAsJsonOrPageHoldsEveryValue) {
    EXPECT_EQ(onOneLine(of({"tree", "--json", "--depth", "1", "/0"})),
              R"({"type":"dictionary","count":2,"children":{"10":{"type":"int","value":1},)"
              R"("9":{"type":"int","value":2}}})");
    write("app.json", R"({"n": 9007199254740993, "<!--\u0007福": "\"</SCRIPT>", "l": [[]]})");
    EXPECT_EQ(of({"tree", "--html", "page.html"}), "");
    const std::string page = read("page.html");
    EXPECT_EQ(of({"tree", "--html", "-"}), page);
    const size_t begin = page.find("{\"title\"");
    EXPECT_EQ(onOneLine(page.substr(begin, page.find('<', begin) - begin)),
              onOneLine(R"({"title": "app.json", "path": "/", "tree": ["", "dictionary", [
                  ["n", "int", "9007199254740993"], ["<!--\u0007福", "string", "\"</SCRIPT>"],
                  ["l", "array", [["0", "dictionary", []]]]]]})"));
}

using FileTest = ToolTest;

TEST_F(FileTest, DumpAndLoadIsTheIdentityOnRealFiles) {
    const std::filesystem::path real = "/usr/share/iso-codes/json";
    if (!std::filesystem::exists(real)) {
        GTEST_SKIP() << "the package iso-codes is not installed";
    }
    for (const auto& entry : std::filesystem::directory_iterator(real)) {
        const std::string file = entry.path();
        const std::string dumped = outputOf({"--file", file, "dump"});
        EXPECT_EQ(onOneLine(dumped), onOneLine(read(file))) << file;
        write("dumped.json", dumped);
        EXPECT_EQ(outputOf({"diff", file, "dumped.json"}), "") << file;
    }
}

TEST_F(FileTest, MergeTakesTheLaterOrKeepsTheEarlierAndDiffShowsOneSettingPerLine) {
    write("a.json", R"({"x": 1, "y": {"a": 1}, "v": 1, "l": [1, 2, 3]})");
    write("b.json", R"({"y": {"a": 2, "b": 2}, "v": {"w": 2}, "l": [9], "z": 2})");
    EXPECT_EQ(onOneLine(outputOf({"merge", "a.json", "b.json"})),
              R"({"x":1,"y":{"a":2,"b":2},"v":{"w":2},"l":[9,2,3],"z":2})");
    EXPECT_EQ(onOneLine(outputOf({"merge", "--keep", "a.json", "b.json"})),
              R"({"x":1,"y":{"a":1,"b":2},"v":1,"l":[1,2,3],"z":2})");
    EXPECT_EQ(read("a.json"), R"({"x": 1, "y": {"a": 1}, "v": 1, "l": [1, 2, 3]})");

    write("a.json",
          R"({"x": 1, "t": "1", "gone": {"p": [true]}, "e": {}, "k": {"v": 1}, "s":1.0})");
    write("b.json", R"({"x": 2, "t": 1, "new": {"q": "z"}, "f": {}, "k": 5, "s": 1})");
    const auto [exitCode, output, errors] = run({"diff", "a.json", "b.json"});
    EXPECT_TRUE(exitCode == 1 && errors.empty()) << exitCode << errors;
    EXPECT_EQ(output, "/x: 1 -> 2\n/t: \"1\" -> 1\n/gone/p/0: true -> unset\n"
                      "/e: {} -> unset\n/k/v: 1 -> unset\n/k: unset -> 5\n"
                      "/s: 1.0 -> 1\n/new/q: unset -> \"z\"\n/f: unset -> {}\n");
    EXPECT_EQ(onOneLine(run({"diff", "--json", "a.json", "b.json"}).output)
                  .rfind(R"([{"path":"/x","old":1,"new":2},)", 0),
              0u);
    write("c.json",
          R"({"s":1.00,"x":1,"t":"\u0031","e":[],"k": {"v":1}, "gone":{"p":{"0":true}}})");
    EXPECT_EQ(outputOf({"diff", "a.json", "c.json"}), "");
}
