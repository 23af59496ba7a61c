// Whole files: what is dumped loads as the same again, merging and comparing.
#include "ToolFixture.h"

#include <nlohmann/json.hpp>

using nlohmann::ordered_json;
using vorn::test::Result;
using vorn::test::ToolTest;

namespace {

class FileTest : public ToolTest {};

TEST_F(FileTest, DumpAndLoadIsTheIdentityOnRealFiles) {
    size_t count = 0;
    const std::filesystem::path real = "/usr/share/iso-codes/json";
    if (!std::filesystem::exists(real)) {
        GTEST_SKIP() << "the package iso-codes is not installed";
    }
    for (const auto& entry : std::filesystem::directory_iterator(real)) {
        const std::string file = entry.path();
        const std::string dumped = outputOf({"--file", file, "dump"});
        std::ifstream original(file);
        EXPECT_EQ(ordered_json::parse(dumped), ordered_json::parse(original)) << file;
        write("dumped.json", dumped);
        EXPECT_EQ(outputOf({"--file", "dumped.json", "dump"}), dumped) << file;
        EXPECT_EQ(outputOf({"diff", file, "dumped.json"}), "") << file;
        ++count;
    }
    EXPECT_GE(count, 8u);
}

TEST_F(FileTest, MergeTakesTheLaterOrKeepsTheEarlier) {
    write("a.json", R"({"x": 1, "y": {"a": 1}, "v": 1, "l": [1, 2, 3]})");
    write("b.json", R"({"y": {"a": 2, "b": 2}, "v": {"w": 2}, "l": [9], "z": 2})");
    const auto line = [](const std::string& text) { return ordered_json::parse(text).dump(); };
    EXPECT_EQ(line(outputOf({"merge", "a.json", "b.json"})),
              R"({"x":1,"y":{"a":2,"b":2},"v":{"w":2},"l":[9,2,3],"z":2})");
    EXPECT_EQ(line(outputOf({"merge", "--keep", "a.json", "b.json"})),
              R"({"x":1,"y":{"a":1,"b":2},"v":1,"l":[1,2,3],"z":2})");
    EXPECT_EQ(line(outputOf({"merge", "b.json"})),
              R"({"y":{"a":2,"b":2},"v":{"w":2},"l":[9],"z":2})");
    EXPECT_EQ(read("a.json"), R"({"x": 1, "y": {"a": 1}, "v": 1, "l": [1, 2, 3]})");
}

TEST_F(FileTest, DiffShowsOneSettingPerLine) {
    write("a.json",
          R"({"x": 1, "t": "1", "gone": {"p": [true]}, "e": {}, "k": {"v": 1}, "s": 1.0})");
    write("b.json", R"({"x": 2, "t": 1, "new": {"q": "z"}, "f": {}, "k": 5, "s": 1})");
    const Result result = run({"diff", "a.json", "b.json"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.output, "/x: 1 -> 2\n"
                             "/t: \"1\" -> 1\n"
                             "/gone/p/0: true -> unset\n"
                             "/e: {} -> unset\n"
                             "/k/v: 1 -> unset\n"
                             "/k: unset -> 5\n"
                             "/s: 1.0 -> 1\n"
                             "/new/q: unset -> \"z\"\n"
                             "/f: unset -> {}\n");
    EXPECT_EQ(result.errors, "");

    const Result json = run({"diff", "--json", "a.json", "b.json"});
    EXPECT_EQ(json.exitCode, 1);
    EXPECT_EQ(ordered_json::parse(json.output)[2].dump(),
              R"({"path":"/gone/p/0","old":true,"new":null})");
    EXPECT_EQ(ordered_json::parse(json.output).size(), 9u);

    write("c.json",
          R"({"s":1.00,"x":1, "t":"\u0031", "e": [], "k": {"v":1}, "gone":{"p":{"0":true}}})");
    EXPECT_EQ(outputOf({"diff", "a.json", "c.json"}), "");
    EXPECT_EQ(outputOf({"diff", "--json", "a.json", "c.json"}), "[]\n");
}

} // namespace
