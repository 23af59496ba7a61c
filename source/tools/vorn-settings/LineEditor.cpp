// The prompt, over the line editing library.
#include "LineEditor.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace vorn::tool {

namespace {

constexpr int kHistoryLength = 1000;
constexpr size_t kShownMatches = 40;

LineEditor& ownerOf(EditLine* editor) {
    void* owner = nullptr;
    el_get(editor, EL_CLIENTDATA, &owner);
    return *static_cast<LineEditor*>(owner);
}

std::string commonStart(const std::vector<std::string>& texts) {
    std::string start = texts.front();
    for (const std::string& text : texts) {
        const auto [end, other] =
            std::mismatch(start.begin(), start.end(), text.begin(), text.end());
        start.erase(end, start.end());
    }
    return start;
}

// Where programs keep what they remember between runs; makes the directory.
std::string historyFile() {
    const char* state = std::getenv("XDG_STATE_HOME");
    const char* home = std::getenv("HOME");
    if (!(state && *state) && !(home && *home)) {
        return "";
    }
    const std::string base = state && *state ? state : std::string(home) + "/.local/state";
    const std::string directory = base + "/vorn-settings";
    std::error_code impossible;
    std::filesystem::create_directories(directory, impossible);
    return impossible ? "" : directory + "/history";
}

struct LastWord {
    size_t begin = 0; // behind its quote
    char quote = '\0';
};

LastWord lastWordOf(const std::string& line) {
    LastWord word;
    for (size_t at = 0; at < line.size(); ++at) {
        const char byte = line[at];
        if (word.quote != '\0') {
            word = byte == word.quote ? LastWord{at + 1, '\0'} : word;
        } else if (byte == ' ' || byte == '\t') {
            word.begin = at + 1;
        } else if ((byte == '"' || byte == '\'') && word.begin == at) {
            word = {at + 1, byte};
        }
    }
    return word;
}

} // namespace

LineEditor::LineEditor(std::string prompt, CompleteFn complete)
    : m_prompt(std::move(prompt)), m_completions(std::move(complete)), m_historyFile(historyFile()),
      m_history(history_init(), history_end),
      m_editor(el_init("vorn-settings", stdin, stdout, stderr), el_end) {
    HistEvent event;
    history(m_history.get(), &event, H_SETSIZE, kHistoryLength);
    history(m_history.get(), &event, H_SETUNIQUE, 1);
    if (!m_historyFile.empty()) {
        history(m_history.get(), &event, H_LOAD, m_historyFile.c_str());
    }

    EditLine* editor = m_editor.get();
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_PROMPT, _prompt);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_HIST, history, m_history.get());
    el_wset(editor, EL_ADDFN, L"complete", L"Complete the word", _complete);
    el_set(editor, EL_BIND, "\t", "complete", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    // Ctrl-C gives up the line instead of ending the program.
    el_wset(editor, EL_ADDFN, L"cancel", L"Give up the line", _cancel);
    el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
    el_set(editor, EL_BIND, "^C", "cancel", nullptr);
    el_source(editor, nullptr);
}

LineEditor::~LineEditor() {
    if (!m_historyFile.empty()) {
        HistEvent event;
        history(m_history.get(), &event, H_SAVE, m_historyFile.c_str());
    }
}

std::optional<std::string> LineEditor::readLine() {
    m_isCancelled = false;
    int length = 0;
    const char* line = el_gets(m_editor.get(), &length);
    if (!line || length <= 0) {
        return std::nullopt;
    }
    std::string text(line, static_cast<size_t>(length));
    text.erase(std::min(text.find('\n'), text.size()));
    if (m_isCancelled) {
        return "";
    }
    if (!text.empty()) {
        HistEvent event;
        history(m_history.get(), &event, H_ENTER, text.c_str());
    }
    return text;
}

char* LineEditor::_prompt(EditLine* editor) {
    return ownerOf(editor).m_prompt.data();
}

unsigned char LineEditor::_cancel(EditLine* editor, int) {
    ownerOf(editor).m_isCancelled = true;
    std::fputs("^C\n", stdout);
    return CC_NEWLINE;
}

unsigned char LineEditor::_complete(EditLine* editor, int) {
    const LineInfo* info = el_line(editor);
    const std::string line(info->buffer, info->cursor);
    const LastWord last = lastWordOf(line);
    const std::string word = line.substr(last.begin);
    const bool isQuoted = last.quote != '\0';
    const std::vector<std::string> matches =
        ownerOf(editor).m_completions(line.substr(0, last.begin - (isQuoted ? 1 : 0)), word);
    if (matches.empty()) {
        return CC_ERROR;
    }
    std::string completed = commonStart(matches);
    const bool wantsQuote = !isQuoted && completed.find_first_of(" \t") != std::string::npos;
    const std::string quote = wantsQuote ? "\"" : std::string(isQuoted ? 1 : 0, last.quote);
    if (matches.size() == 1 && !completed.ends_with('/')) {
        completed += quote + ' '; // complete, unless something may follow an inner node
    }
    if (completed != word) {
        el_deletestr(editor, static_cast<int>(line.size() - last.begin));
        el_insertstr(editor, ((wantsQuote ? quote : "") + completed).c_str());
        return CC_REFRESH;
    }
    std::fputc('\n', stdout);
    const size_t shownCount = std::min(matches.size(), kShownMatches);
    for (size_t index = 0; index < shownCount; ++index) {
        std::fprintf(stdout, "%s\n", matches[index].c_str());
    }
    if (shownCount < matches.size()) {
        std::fprintf(stdout, "... and %zu more\n", matches.size() - shownCount);
    }
    return CC_REDISPLAY;
}

} // namespace vorn::tool
