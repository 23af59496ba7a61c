// Following files that other programs change.
#include "ToolFixture.h"

#include <csignal>

using namespace vorn::test;

using WatchTest = ToolTest;

TEST_F(WatchTest, EveryWayOfChangingAFileIsSeen) {
    write("a.json", R"({"app": {"w": 1, "t": "x"}, "other": 1})");
    write("real.json", R"({"app": {"w": 2}})");
    std::filesystem::create_symlink("real.json", directory / "b.json");
    Process watch({"--file", "a.json", "--file", "b.json", "watch", "/app"}, surroundings);
    ASSERT_TRUE(watch.waitForErrors("watching /app")) << watch.errors();

    write("new", R"({"app": {"w": 1, "t": "y"}, "other": 2})");
    std::filesystem::rename(directory / "new", directory / "a.json");
    EXPECT_TRUE(watch.waitForOutput("changed /app/t: \"x\" -> \"y\"\n"));
    write("real.json", R"({"app": {"w": 3, "n": {"k": 1}}})");
    EXPECT_TRUE(watch.waitForOutput("created /app/n/k: unset -> 1\n"));
    EXPECT_EQ(run({"--file", "b.json", "reset", "--force", "/app/n"}).exitCode, 0);
    EXPECT_TRUE(watch.waitForOutput("destroyed /app/n/k: 1 -> unset\n"));

    write("a.json", R"({"app": )"); // what was read last stays
    EXPECT_TRUE(watch.waitForErrors("broken JSON: a.json:1:8:")) << watch.errors();
    write("a.json", R"({"app": {"w": 1}})");
    EXPECT_TRUE(watch.waitForOutput("destroyed /app/t: \"y\" -> unset\n"));

    watch.signal(SIGINT);
    EXPECT_EQ(watch.wait(), 0);
    EXPECT_EQ(watch.output(), "changed /app/t: \"x\" -> \"y\"\nchanged /app/w: 2 -> 3\n"
                              "created /app/n/\ncreated /app/n/k: unset -> 1\n"
                              "destroyed /app/n/\ndestroyed /app/n/k: 1 -> unset\n"
                              "destroyed /app/t: \"y\" -> unset\n");
}
