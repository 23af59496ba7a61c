// One line of input from a terminal, with editing, completion and a history that outlives it.
#pragma once

#include <cstddef>
#include <functional>
#include <histedit.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vorn::tool {

// All that the word at the end of a line may become; before is the line up to it. Neither has the
// quote that the word may begin with.
using CompleteFn =
    std::function<std::vector<std::string>(const std::string& before, const std::string& word)>;

class LineEditor {
public:
    LineEditor(std::string prompt, CompleteFn complete);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    // The line; empty when it was given up with Ctrl-C, none at the end of input.
    std::optional<std::string> readLine();

private:
    static char* _prompt(EditLine* editor);
    static unsigned char _complete(EditLine* editor, int key);
    static unsigned char _cancel(EditLine* editor, int key);

    std::string m_prompt;
    CompleteFn m_completions;
    std::string m_historyFile; // empty when there is no place for one
    bool m_isCancelled = false;
    std::unique_ptr<History, void (*)(History*)> m_history;
    std::unique_ptr<EditLine, void (*)(EditLine*)> m_editor;
};

} // namespace vorn::tool
