// Completion.
#include "Completion.h"

#include "CommandLine.h"

#include <algorithm>
#include <filesystem>

namespace vorn::tool {

namespace {

// The word up to its last "/", which is what its matches have in common for sure.
std::string parentOf(const std::string& word) {
    return word.substr(0, word.rfind('/') + 1);
}

std::vector<std::string> commandNames() {
    std::vector<std::string> names;
    for (const Command& command : commands()) {
        if (command.place != Command::Place::eProgram) {
            names.emplace_back(command.name);
        }
    }
    return names;
}

std::vector<std::string> filesBeside(const std::string& word) {
    const std::string parent = parentOf(word);
    std::vector<std::string> files;
    std::error_code unreadable; // offers nothing
    for (const auto& entry :
         std::filesystem::directory_iterator(parent.empty() ? "." : parent, unreadable)) {
        const std::string name = entry.path().filename();
        files.push_back(parent + name + (entry.is_directory(unreadable) ? "/" : ""));
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::string> settingsBeside(const Store& store, const std::string& word) {
    const std::string parent = word.empty() ? "/" : parentOf(word);
    const IDictionary& idict = store.idict();
    std::vector<std::string> paths;
    try {
        const Item* node = store.find(SettingsPath::parse(parent));
        for (const Item* child : childrenOf(idict, node)) {
            paths.push_back(parent + idict.getItemName(child) +
                            (isDictionary(idict, child) ? "/" : ""));
        }
    } catch (const ToolError&) {
        // no path, nothing to offer
    }
    return paths;
}

} // namespace

std::vector<std::string>
completionsOf(const Session& session, const std::string& before, const std::string& word) {
    const std::vector<std::string> words = wordsOf(before);
    const Usage usage = words.empty() ? Usage() : usageOf(words[0]);
    std::vector<std::string> candidates;
    if (words.empty() || words[0] == "help") {
        candidates = commandNames();
    } else if (word.starts_with('-')) {
        candidates = usage.options;
    } else if (usage.takesFiles || words.back() == "--html") {
        candidates = filesBeside(word);
    } else {
        candidates = settingsBeside(session.store, word);
    }
    std::erase_if(candidates, [&](const std::string& match) { return !match.starts_with(word); });
    return candidates;
}

} // namespace vorn::tool
