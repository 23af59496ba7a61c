// Reading settings: get, type, list, dump, and files over files.
#include "ToolFixture.h"

using vorn::test::ToolTest;

namespace {

constexpr const char* kApp = R"({
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
    std::string of(Words arguments) const {
        arguments.insert(arguments.begin(), {"--file", "app.json"});
        return outputOf(arguments);
    }
};

TEST_F(ReadTest, GetPrintsTheValueAlone) {
    EXPECT_EQ(of({"get", "/app/view/width"}), "1280\n");
    EXPECT_EQ(of({"get", "app/view/ratio/"}), "1.5\n");
    EXPECT_EQ(of({"get", "/app/view/on"}), "true\n");
    EXPECT_EQ(of({"get", "/app/view/title"}), "Grüße \"x\"\n\n");
    EXPECT_EQ(of({"get", "--json", "/app/view/title"}), "\"Grüße \\\"x\\\"\\n\"\n");
    EXPECT_EQ(of({"get", "/modes/1"}), "night\n");
    EXPECT_EQ(of({"get", "/modes"}), "[\n  \"day\",\n  \"night\"\n]\n");
    EXPECT_EQ(of({"get", "/none"}), "{}\n");
}

TEST_F(ReadTest, TypeNamesWhatIsThere) {
    EXPECT_EQ(of({"type", "/app"}), "dictionary\n");
    EXPECT_EQ(of({"type", "/modes"}), "array\n");
    EXPECT_EQ(of({"type", "/app/view/width"}), "int\n");
    EXPECT_EQ(of({"type", "/app/view/ratio"}), "float\n");
    EXPECT_EQ(of({"type", "/app/view/on"}), "bool\n");
    EXPECT_EQ(of({"type", "--json", "/modes/0"}), "\"string\"\n");
}

TEST_F(ReadTest, ListKeepsTheOrderOfTheFileUnlessAskedToSort) {
    EXPECT_EQ(of({"list"}), "app/\nmodes/\n0/\nnone/\n");
    EXPECT_EQ(of({"list", "--sort"}), "0/\napp/\nmodes/\nnone/\n");
    EXPECT_EQ(of({"list", "/0"}), "10\n9\n");
    EXPECT_EQ(of({"list", "/none"}), "");
    EXPECT_EQ(of({"list", "-r", "/app"}),
              "/app/view/\n/app/view/width\n/app/view/ratio\n/app/view/title\n/app/view/on\n");
    EXPECT_EQ(of({"list", "--json", "/"}), "[\"app/\",\"modes/\",\"0/\",\"none/\"]\n");
    EXPECT_EQ(of({"--color", "always", "list", "/app"}), "\033[1;34mview/\033[0m\n");
}

TEST_F(ReadTest, AnArrayIsWhatHasItsIndicesAsNames) {
    write("app.json", R"({"a": {"0": 1, "1": 2}, "b": {"1": 1}, "c": {"00": 1}, "d": [[], [1]]})");
    EXPECT_EQ(of({"dump"}), R"({
  "a": [
    1,
    2
  ],
  "b": {
    "1": 1
  },
  "c": {
    "00": 1
  },
  "d": [
    {},
    [
      1
    ]
  ]
}
)");
}

TEST_F(ReadTest, LaterFilesWinAndOptionsMayComeLast) {
    write("user.json", R"({"app": {"view": {"width": 800}}, "modes": {"1": "dusk"}, "none": 3})");
    EXPECT_EQ(outputOf({"list", "-r", "--file", "app.json", "--file", "user.json"}),
              "/app/\n/app/view/\n/app/view/width\n/app/view/ratio\n/app/view/title\n/app/view/on\n"
              "/modes/\n/modes/0\n/modes/1\n/0/\n/0/10\n/0/9\n/none\n");
    const Words both = {"--file", "app.json", "--file", "user.json", "get"};
    const auto get = [&](const std::string& path) {
        Words arguments = both;
        arguments.push_back(path);
        return outputOf(arguments);
    };
    EXPECT_EQ(get("/app/view/width"), "800\n");
    EXPECT_EQ(get("/app/view/ratio"), "1.5\n");
    EXPECT_EQ(get("/modes/1"), "dusk\n");
    EXPECT_EQ(get("/none"), "3\n");
}

TEST_F(ReadTest, NamesOfCommandsArePathsToo) {
    write("app.json", R"({"list": 1, "get": {"set": 2}})");
    EXPECT_EQ(of({"get", "list"}), "1\n");
    EXPECT_EQ(of({"get", "get/set"}), "2\n");
}

TEST_F(ReadTest, NumbersKeepTheirTypeAndValue) {
    write("app.json", R"([9223372036854775807, -9223372036854775808, 1e2, -0.0, 5e-324, 0.1])");
    EXPECT_EQ(of({"get", "0"}), "9223372036854775807\n");
    EXPECT_EQ(of({"get", "1"}), "-9223372036854775808\n");
    EXPECT_EQ(of({"get", "2"}), "100.0\n");
    EXPECT_EQ(of({"get", "3"}), "-0.0\n");
    EXPECT_EQ(of({"get", "4"}), "5e-324\n");
    EXPECT_EQ(of({"get", "5"}), "0.1\n");
}

TEST_F(ReadTest, HelpAndVersionAreGoodUses) {
    EXPECT_EQ(outputOf({"--version"}).rfind("vorn-settings ", 0), 0u);
    EXPECT_NE(outputOf({"--help"}).find("Examples:"), std::string::npos);
    EXPECT_NE(outputOf({"set", "--help"}).find("--type"), std::string::npos);
}

} // namespace
