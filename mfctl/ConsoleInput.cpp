#include "ConsoleInput.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <utility>

#include "Printable.h"
#include "Words.h"

namespace {

constexpr int s_historySize = 500;

/// What all of them begin with.
std::string commonPart(const std::vector<std::string>& words) {
    std::string common = words.front();
    for (const std::string& word : words)
        common.erase(std::mismatch(common.begin(), common.end(), word.begin(), word.end()).first,
                     common.end());
    return common;
}

}  // namespace

ConsoleInput::ConsoleInput(std::string prompt, Completer completer)
    : m_prompt(std::move(prompt)), m_completer(std::move(completer)) {
    if (!::isatty(STDIN_FILENO) || !::isatty(STDOUT_FILENO))
        return;
    m_pHistory.reset(history_init());
    m_pEditor.reset(el_init("mfctl", stdin, stdout, stderr));
    HistEvent event{};
    history(m_pHistory.get(), &event, H_SETSIZE, s_historySize);
    history(m_pHistory.get(), &event, H_SETUNIQUE, 1);
    EditLine* pEditor = m_pEditor.get();
    el_set(pEditor, EL_CLIENTDATA, this);
    el_set(pEditor, EL_EDITOR, "emacs");
    el_set(pEditor, EL_PROMPT, &ConsoleInput::prompt);
    el_set(pEditor, EL_HIST, history, m_pHistory.get());
    el_set(pEditor, EL_ADDFN, "mfctl-complete", "Complete the word", &ConsoleInput::complete);
    el_set(pEditor, EL_ADDFN, "mfctl-discard", "Empty the line", &ConsoleInput::discard);
    el_set(pEditor, EL_BIND, "^I", "mfctl-complete", nullptr);
    el_set(pEditor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_set(pEditor, EL_BIND, "^C", "mfctl-discard", nullptr);
    // While a line is edited, Ctrl-C is a key and no signal.
    el_set(pEditor, EL_SETTY, "-d", "-isig", nullptr);
    // Follows the width of the terminal.
    el_set(pEditor, EL_SIGNAL, 1);
}

ConsoleInput::~ConsoleInput() = default;

ConsoleInput& ConsoleInput::self(EditLine* pEditor) {
    void* pClient = nullptr;
    el_get(pEditor, EL_CLIENTDATA, &pClient);
    return *static_cast<ConsoleInput*>(pClient);
}

char* ConsoleInput::prompt(EditLine* pEditor) {
    return self(pEditor).m_prompt.data();
}

unsigned char ConsoleInput::discard(EditLine* pEditor, int) {
    const LineInfo* pLine = el_line(pEditor);
    el_cursor(pEditor, static_cast<int>(pLine->lastchar - pLine->cursor));
    el_deletestr(pEditor, static_cast<int>(pLine->lastchar - pLine->buffer));
    std::fputs("^C\n", stdout);
    return CC_REDISPLAY;
}

unsigned char ConsoleInput::complete(EditLine* pEditor, int) {
    const LineInfo* pLine = el_line(pEditor);
    const std::string typed(pLine->buffer, pLine->cursor);
    const std::size_t wordStart = typed.find_last_of(" \t") + 1;
    const std::string prefix = typed.substr(wordStart);
    const auto candidates =
        self(pEditor).m_completer(base::splitWords(typed.substr(0, wordStart)).words, prefix);
    if (candidates.empty())
        return CC_REFRESH_BEEP;
    const std::string common = commonPart(candidates);
    std::string addition = common.substr(std::min(prefix.size(), common.size()));
    if (candidates.size() == 1 && !common.ends_with('.'))
        addition += " ";
    // A word that cannot be shown as it is does not belong into the operator's line.
    if (!addition.empty() && base::isPrintable(addition))
        return el_insertstr(pEditor, addition.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;
    std::fputc('\n', stdout);
    for (const std::string& candidate : candidates)
        std::fprintf(stdout, "%s\n", base::printable(candidate).c_str());
    return CC_REDISPLAY;
}

std::optional<std::string> ConsoleInput::read() {
    std::string line;
    if (!m_pEditor) {
        if (!std::getline(std::cin, line))
            return std::nullopt;
        if (line.ends_with('\r'))
            line.pop_back();
        return line;
    }
    int count = 0;
    const char* pText = el_gets(m_pEditor.get(), &count);
    if (!pText || count <= 0)
        return std::nullopt;
    line.assign(pText, static_cast<std::size_t>(count));
    line.erase(line.find_last_not_of("\r\n") + 1);
    if (!line.empty()) {
        HistEvent event{};
        history(m_pHistory.get(), &event, H_ENTER, line.c_str());
    }
    return line;
}
