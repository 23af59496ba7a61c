// The prompt, over the line editing library.
#include "LineEditor.h"

#include <algorithm>
#include <cstdio>

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

} // namespace

LineEditor::LineEditor(std::string prompt, CompleteFn complete)
    : m_prompt(std::move(prompt)), m_completions(std::move(complete)),
      m_history(history_init(), history_end),
      m_editor(el_init("vorn-settings", stdin, stdout, stderr), el_end) {
    HistEvent event;
    history(m_history.get(), &event, H_SETSIZE, kHistoryLength);
    history(m_history.get(), &event, H_SETUNIQUE, 1);

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
    const size_t wordBegin = line.find_last_of(" \t") + 1; // 0 when there is none
    const std::vector<std::string> matches = ownerOf(editor).m_completions(line, wordBegin);
    if (matches.empty()) {
        return CC_ERROR;
    }
    std::string addition = commonStart(matches).substr(line.size() - wordBegin);
    if (matches.size() == 1 && !matches[0].ends_with('/')) {
        addition += ' '; // complete, unless something may follow an inner node
    }
    if (!addition.empty()) {
        el_insertstr(editor, addition.c_str());
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
