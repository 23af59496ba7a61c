// The tool on files of a directory that lives as long as the test.
#pragma once

#include "Process.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace vorn::test {

struct Result {
    int exitCode;
    std::string output, errors;
};

class ToolTest : public testing::Test {
protected:
    using Words = std::vector<std::string>;

    ToolTest() {
        std::string name = std::filesystem::temp_directory_path() / "vorn-tool-XXXXXX";
        directory = mkdtemp(name.data());
        surroundings.directory = directory;
    }
    ~ToolTest() override {
        std::filesystem::remove_all(directory);
    }

    void write(const std::string& name, const std::string& text) const {
        std::ofstream(directory / name, std::ios::binary) << text;
    }
    std::string read(const std::string& name) const {
        std::ifstream file(directory / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static Words onFile(Words rest, const std::string& file = "a.json") {
        rest.insert(rest.begin(), {"--file", file});
        return rest;
    }
    static std::string onOneLine(const std::string& json) {
        return nlohmann::ordered_json::parse(json).dump();
    }
    Result run(const Words& arguments, const std::string& input = "") const {
        Process process(arguments, surroundings);
        process.write(input);
        process.closeInput();
        return {process.wait(), process.output(), process.errors()};
    }

    // The output of a run that must go well and say nothing else.
    std::string outputOf(const Words& arguments, const std::string& input = "") const {
        const Result result = run(arguments, input);
        EXPECT_TRUE(result.exitCode == 0 && result.errors.empty()) << result.errors;
        return result.output;
    }

    // A run that must fail with that message, print nothing and leave the directory as it was.
    // More may follow a message that does not end its line.
    void expectFailure(const Words& arguments, int exitCode, const std::string& message) const {
        const auto before = contents();
        const Result result = run(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << testing::PrintToString(arguments);
        const std::string expected = "vorn-settings: " + message;
        EXPECT_EQ(message.back() == '\n' ? result.errors : result.errors.substr(0, expected.size()),
                  expected);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(contents(), before) << "a file was touched";
    }

    // The texts of all files by name; none of what is no readable file.
    std::map<std::string, std::string> contents() const {
        std::map<std::string, std::string> all;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(
                 directory, std::filesystem::directory_options::skip_permission_denied)) {
            const std::string name = entry.path().lexically_relative(directory);
            all[name] = entry.is_regular_file() ? read(name) : "";
        }
        return all;
    }

    std::filesystem::path directory;
    Surroundings surroundings;
};

} // namespace vorn::test
