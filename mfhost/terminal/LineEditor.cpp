#include "LineEditor.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <utility>

#include "Printable.h"
#include "Words.h"

namespace {
constexpr int s_historySize = 500;
}

LineEditor::LineEditor(InputWaiter& waiter, Completer completer)
    : m_waiter(waiter),
      m_completer(std::move(completer)),
      m_pHistory(history_init()),
      m_pEditor(el_init("mfhost", stdin, stdout, stderr)) {
    HistEvent event{};
    history(m_pHistory.get(), &event, H_SETSIZE, s_historySize);
    history(m_pHistory.get(), &event, H_SETUNIQUE, 1);
    EditLine* pEditor = m_pEditor.get();
    el_set(pEditor, EL_CLIENTDATA, this);
    el_set(pEditor, EL_EDITOR, "emacs");
    el_set(pEditor, EL_SIGNAL, 0);
    el_set(pEditor, EL_PROMPT, &LineEditor::prompt);
    el_set(pEditor, EL_HIST, history, m_pHistory.get());
    el_set(pEditor, EL_GETCFN, &LineEditor::readCharacter);
    el_set(pEditor, EL_ADDFN, "mfhost-complete", "Complete the word", &LineEditor::complete);
    el_set(pEditor, EL_BIND, "^I", "mfhost-complete", nullptr);
    el_set(pEditor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

LineEditor::~LineEditor() = default;

LineEditor& LineEditor::self(EditLine* pEditor) {
    void* pClient = nullptr;
    el_get(pEditor, EL_CLIENTDATA, &pClient);
    return *static_cast<LineEditor*>(pClient);
}

char* LineEditor::prompt(EditLine*) {
    static char s_prompt[] = "mfhost> ";
    return s_prompt;
}

int LineEditor::readCharacter(EditLine* pEditor, wchar_t* pCharacter) {
    LineEditor& editor = self(pEditor);
    std::mbstate_t state{};
    for (;;) {
        const InputWaiter::EResult waited = editor.m_waiter.wait();
        if (waited == InputWaiter::EResult::Stopped)
            return 0;
        if (waited == InputWaiter::EResult::Nudged) {
            std::fputs(s_eraseLine, stdout);
            el_set(pEditor, EL_REFRESH);
            continue;
        }
        char byte = 0;
        const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count <= 0)
            return static_cast<int>(count);
        const std::size_t length = std::mbrtowc(pCharacter, &byte, 1, &state);
        if (length == static_cast<std::size_t>(-2))
            continue;
        // A byte outside the terminal's character set stands for itself.
        if (length == static_cast<std::size_t>(-1))
            *pCharacter = static_cast<unsigned char>(byte);
        return 1;
    }
}

unsigned char LineEditor::complete(EditLine* pEditor, int) {
    const LineInfo* pLine = el_line(pEditor);
    const std::string typed(pLine->buffer, pLine->cursor);
    const std::size_t wordStart = typed.find_last_of(" \t") + 1;
    const std::string prefix = typed.substr(wordStart);
    const auto candidates =
        self(pEditor).m_completer(base::splitWords(typed.substr(0, wordStart)).words, prefix);
    if (candidates.empty())
        return CC_REFRESH_BEEP;

    std::string common = candidates.front();
    for (const std::string& candidate : candidates) {
        const auto difference =
            std::mismatch(common.begin(), common.end(), candidate.begin(), candidate.end());
        common.erase(difference.first, common.end());
    }
    std::string addition = common.substr(std::min(prefix.size(), common.size()));
    if (candidates.size() == 1)
        addition += " ";
    // A word that cannot be shown as it is does not belong into the operator's line.
    if (!addition.empty() && base::isPrintable(addition))
        return el_insertstr(pEditor, addition.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;

    std::fputc('\n', stdout);
    for (const std::string& candidate : candidates)
        std::fprintf(stdout, "%s\n", base::printable(candidate).c_str());
    return CC_REDISPLAY;
}

std::optional<std::string> LineEditor::read() {
    el_resize(m_pEditor.get());
    int count = 0;
    const char* text = el_gets(m_pEditor.get(), &count);
    if (!text || count <= 0 || m_waiter.isStopped())
        return std::nullopt;
    std::string line(text, static_cast<std::size_t>(count));
    line.erase(line.find_last_not_of("\r\n") + 1);
    if (!line.empty()) {
        HistEvent event{};
        history(m_pHistory.get(), &event, H_ENTER, line.c_str());
    }
    return line;
}
