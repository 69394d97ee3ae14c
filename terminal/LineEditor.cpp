#include "LineEditor.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <utility>

#include "Printable.h"
#include "TerminalView.h"
#include "Words.h"

namespace {

/// Encloses in a prompt what moves the cursor nowhere.
constexpr wchar_t s_invisible = L'\1';
/// How often the notice before the prompt is looked at.
constexpr std::chrono::seconds s_noticeInterval{1};

/// The relay's terminal as a stream; null where there is no relay or no descriptor.
std::FILE* openTerminal(const TerminalRelay* pRelay) {
    if (!pRelay)
        return nullptr;
    const int fd = ::fcntl(pRelay->terminal(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    std::FILE* pFile = fd < 0 ? nullptr : ::fdopen(fd, "w");
    if (fd >= 0 && !pFile)
        ::close(fd);
    return pFile;
}

std::string withBrackets(const std::string& notice) {
    return notice.empty() ? notice : "[" + notice + "] ";
}

}  // namespace

LineEditor::LineEditor(InputWaiter& waiter, Completer completer)
    : LineEditor(waiter, std::move(completer), Settings()) {}

LineEditor::LineEditor(InputWaiter& waiter, Completer completer, Settings settings)
    : m_waiter(waiter),
      m_completer(std::move(completer)),
      m_settings(std::move(settings)),
      m_historyFile(m_settings.historyFile),
      m_pTerminal(openTerminal(m_settings.pRelay)),
      m_pOutput(m_pTerminal ? m_pTerminal.get() : stdout),
      m_pHistory(history_init()),
      m_pEditor(el_init("mfhost", stdin, m_pOutput, m_pOutput)) {
    HistEvent event{};
    history(m_pHistory.get(), &event, H_SETSIZE, static_cast<int>(HistoryFile::s_lines));
    history(m_pHistory.get(), &event, H_SETUNIQUE, 1);
    EditLine* pEditor = m_pEditor.get();
    el_set(pEditor, EL_CLIENTDATA, this);
    el_set(pEditor, EL_EDITOR, "emacs");
    el_set(pEditor, EL_SIGNAL, 0);
    if (m_settings.keepsKeys)
        el_set(pEditor, EL_SETTY, "-x", "-isig", "-icanon", "-echo", nullptr);
    // While a line is typed.
    el_set(pEditor, EL_SETTY, "-d", "-isig", nullptr);
    el_wset(pEditor, EL_PROMPT_ESC, &LineEditor::prompt, s_invisible);
    el_set(pEditor, EL_HIST, history, m_pHistory.get());
    el_wset(pEditor, EL_GETCFN, &LineEditor::readCharacter);
    el_set(pEditor, EL_ADDFN, "console-complete", "Complete the word", &LineEditor::complete);
    el_set(pEditor, EL_ADDFN, "console-interrupt", "Empty the line", &LineEditor::interrupt);
    el_set(pEditor, EL_BIND, "^I", "console-complete", nullptr);
    el_set(pEditor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_set(pEditor, EL_BIND, "^C", "console-interrupt", nullptr);
    makePrompt();

    std::vector<std::string> lines;
    sayNotKept(m_historyFile.read(lines));
    for (const std::string& line : lines)
        history(m_pHistory.get(), &event, H_ENTER, line.c_str());
}

LineEditor::~LineEditor() = default;

LineEditor& LineEditor::self(EditLine* pEditor) {
    void* pClient = nullptr;
    el_get(pEditor, EL_CLIENTDATA, &pClient);
    return *static_cast<LineEditor*>(pClient);
}

wchar_t* LineEditor::prompt(EditLine* pEditor) {
    return self(pEditor).m_prompt.data();
}

void LineEditor::makePrompt() {
    m_notice = m_settings.notice ? base::printable(m_settings.notice()) : std::string();
    const std::string visible = withBrackets(m_notice);
    m_prompt.clear();
    const auto add = [this](const std::string& text) { m_prompt.append(text.begin(), text.end()); };
    const bool isColoured = m_settings.hasColours && !visible.empty();
    if (isColoured)
        add("\1\x1b[31m\1");
    add(visible);
    if (isColoured)
        add("\1\x1b[0m\1");
    add(m_settings.prompt);
}

/// Where the cursor is when it stands before that character of what is typed.
LineEditor::Place LineEditor::placeOf(const char* pEnd) const {
    const std::size_t columns = terminalWidth(STDIN_FILENO);
    const std::size_t promptWidth = withBrackets(m_notice).size() + m_settings.prompt.size();
    Place place{promptWidth / columns, promptWidth % columns};
    std::mbstate_t state{};
    for (const char* p = el_line(m_pEditor.get())->buffer; p < pEnd;) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, p, static_cast<std::size_t>(pEnd - p), &state);
        const bool isCharacter = length > 0 && length <= static_cast<std::size_t>(pEnd - p);
        p += isCharacter ? length : 1;
        if (!isCharacter)
            state = std::mbstate_t{};
        // A search stands on a row of its own.
        if (isCharacter && character == L'\n') {
            place = {place.row + 1, 0};
            continue;
        }
        const int width = isCharacter ? ::wcwidth(character) : -1;
        // A control character is shown as ^X.
        place.column += width < 0 ? 2 : static_cast<std::size_t>(width);
        place.row += place.column / columns;
        place.column %= columns;
    }
    return place;
}

/// Goes to the front of the prompt and empties the screen from there.
void LineEditor::erase(bool isResized) const {
    std::fputc('\r', m_pOutput);
    const LineInfo* pLine = el_line(m_pEditor.get());
    Place cursor = placeOf(pLine->cursor);
    // Where a line has come to fill its last row, a terminal leaves the cursor in that one. What stands above
    // the prompt is not the editor's.
    const bool isRowFull = cursor.row > 0 && cursor.column == 0 && pLine->cursor == pLine->lastchar;
    if (isResized && isRowFull)
        --cursor.row;
    for (std::size_t row = 0; row < cursor.row; ++row)
        std::fputs("\x1b[A", m_pOutput);
    std::fputs("\x1b[J", m_pOutput);
}

void LineEditor::refresh(bool isResized) {
    // A terminal breaks its lines anew before it says that it has another size.
    erase(isResized);
    if (m_settings.pRelay) {
        if (isResized)
            m_settings.pRelay->copySize();
        const std::string text = m_settings.pRelay->take();
        std::fwrite(text.data(), 1, text.size(), m_pOutput);
    }
    std::fflush(m_pOutput);
    if (isResized)
        el_resize(m_pEditor.get());
    makePrompt();
    el_set(m_pEditor.get(), EL_REFRESH);
}

int LineEditor::readCharacter(EditLine* pEditor, wchar_t* pCharacter) {
    LineEditor& editor = self(pEditor);
    std::mbstate_t state{};
    for (;;) {
        const InputWaiter::EResult waited =
            editor.m_settings.notice ? editor.m_waiter.wait(s_noticeInterval) : editor.m_waiter.wait();
        if (waited == InputWaiter::EResult::Stopped) {
            // What comes now has the row for itself.
            editor.erase(false);
            return 0;
        }
        if (waited == InputWaiter::EResult::Idle) {
            if (base::printable(editor.m_settings.notice()) != editor.m_notice)
                editor.refresh(false);
            continue;
        }
        if (waited != InputWaiter::EResult::Input) {
            editor.refresh(waited == InputWaiter::EResult::Resized);
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
    LineEditor& editor = self(pEditor);
    const LineInfo* pLine = el_line(pEditor);
    const std::string typed(pLine->buffer, pLine->cursor);
    const std::size_t wordStart = typed.find_last_of(" \t") + 1;
    const std::string prefix = typed.substr(wordStart);
    const auto candidates = editor.m_completer(base::splitWords(typed.substr(0, wordStart)).words, prefix);
    if (candidates.empty())
        return CC_REFRESH_BEEP;

    std::string common = candidates.front();
    for (const std::string& candidate : candidates) {
        const auto difference =
            std::mismatch(common.begin(), common.end(), candidate.begin(), candidate.end());
        common.erase(difference.first, common.end());
    }
    std::string addition = common.substr(std::min(prefix.size(), common.size()));
    // The begin of a word goes on.
    const bool isWhole = !common.empty() && common.back() != '.' && common.back() != '=';
    if (candidates.size() == 1 && isWhole)
        addition += " ";
    // A word that cannot be shown as it is does not belong into the operator's line.
    if (!addition.empty() && base::isPrintable(addition))
        return el_insertstr(pEditor, addition.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;

    std::fputc('\n', editor.m_pOutput);
    for (const std::string& candidate : candidates)
        std::fprintf(editor.m_pOutput, "%s\n", base::printable(candidate).c_str());
    return CC_REDISPLAY;
}

unsigned char LineEditor::interrupt(EditLine* pEditor, int) {
    LineEditor& editor = self(pEditor);
    const LineInfo* pLine = el_line(pEditor);
    editor.m_wasInterruptPressed = true;
    editor.m_isInterrupted = pLine->lastchar == pLine->buffer;
    editor.m_hasEmptied = editor.m_hasEmptied || !editor.m_isInterrupted;
    // What was typed stays on the screen, whole.
    const Place cursor = editor.placeOf(pLine->cursor);
    const Place end = editor.placeOf(pLine->lastchar);
    for (std::size_t row = cursor.row; row < end.row; ++row)
        std::fputs("\x1b[B", editor.m_pOutput);
    std::fputc('\r', editor.m_pOutput);
    if (end.column > 0)
        std::fprintf(editor.m_pOutput, "\x1b[%zuC", end.column);
    std::fputs("^C\n", editor.m_pOutput);
    return CC_EOF;
}

std::optional<std::string> LineEditor::read() {
    TerminalRelay* pRelay = m_settings.pRelay;
    m_isInterrupted = false;
    m_hasEmptied = false;
    do {
        m_wasInterruptPressed = false;
        el_resize(m_pEditor.get());
        makePrompt();
        if (pRelay)
            pRelay->hold([this] { m_waiter.nudge(); });
        int count = 0;
        const char* text = el_gets(m_pEditor.get(), &count);
        std::fflush(m_pOutput);
        std::string line(text && count > 0 ? text : "", static_cast<std::size_t>(std::max(count, 0)));
        const bool isLine = !line.empty() && !m_waiter.isStopped();
        if (pRelay)
            pRelay->release();
        if (!isLine)
            continue;
        line.erase(line.find_last_not_of("\r\n") + 1);
        keep(line);
        return line;
    } while (m_wasInterruptPressed && !m_isInterrupted && !m_waiter.isStopped());
    return std::nullopt;
}

void LineEditor::keep(const std::string& line) {
    if (line.empty())
        return;
    HistEvent event{};
    history(m_pHistory.get(), &event, H_ENTER, line.c_str());
    sayNotKept(m_historyFile.add(line));
}

void LineEditor::sayNotKept(const std::string& reason) {
    if (reason.empty() || std::exchange(m_isLossSaid, true))
        return;
    if (m_settings.historyLost)
        m_settings.historyLost(reason);
}
