// The tool on files of a directory that lives as long as the test.
#pragma once

#include "Process.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>

namespace vorn::test {

using Words = std::vector<std::string>;
namespace fs = std::filesystem;

inline Words onFile(Words rest, const std::string& file = "a.json") {
    rest.insert(rest.begin(), {"--file", file});
    return rest;
}

inline std::string onOneLine(const std::string& json) {
    return nlohmann::ordered_json::parse(json).dump();
}

class ToolTest : public testing::Test {
protected:
    struct Result {
        int exitCode;
        std::string output, errors;
    };

    ToolTest() {
        std::string name = fs::temp_directory_path() / "vorn-tool-XXXXXX";
        m_root = mkdtemp(name.data());
        directory = m_root / "files";
        fs::create_directory(directory);
        surroundings.directory = directory;
    }
    ~ToolTest() override {
        fs::remove_all(m_root);
    }

    void write(const std::string& name, const std::string& text) const {
        std::ofstream(directory / name, std::ios::binary) << text;
    }
    std::string read(const std::string& name) const {
        std::ifstream file(directory / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    Result run(const Words& arguments, const std::string& input = "") const {
        Surroundings apart = surroundings;
        apart.errors = m_root / "errors";
        Process process(arguments, apart);
        process.write(input);
        process.closeInput();
        const int exitCode = process.wait();
        return {exitCode, process.output, read(apart.errors)};
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
        const size_t length = expected.back() == '\n' ? std::string::npos : expected.size();
        EXPECT_EQ(result.errors.substr(0, length), expected);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(contents(), before) << "a file was touched";
    }

    // The texts of all files by name; none of what is no readable file.
    std::map<std::string, std::string> contents() const {
        std::map<std::string, std::string> all;
        for (const auto& entry : fs::recursive_directory_iterator(
                 directory, fs::directory_options::skip_permission_denied)) {
            const std::string name = entry.path().lexically_relative(directory);
            all[name] = entry.is_regular_file() ? read(name) : "";
        }
        return all;
    }

    fs::path directory;
    Surroundings surroundings;

private:
    fs::path m_root;
};

} // namespace vorn::test
