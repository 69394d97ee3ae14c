#pragma once

#include <histedit.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "HistoryFile.h"
#include "InputWaiter.h"
#include "TerminalRelay.h"

/// Reads lines from a terminal, with editing, a history and completion. While one exists the terminal has the
/// editor's modes, between two lines as well: keys that come then are neither echoed nor lost, and Ctrl-C is
/// a key. One thread, which is called the console's here.
class LineEditor {
public:
    /// The words that may follow those typed so far and begin with the prefix. Called on the console
    /// thread.
    using Completer = std::function<std::vector<std::string>(const std::vector<std::string>& before,
                                                             const std::string& prefix)>;

    struct Settings {
        std::string prompt = "mfhost> ";
        /// What is printed meanwhile comes by it; null: others write to the terminal by themselves.
        TerminalRelay* pRelay = nullptr;
        std::string historyFile = {};  ///< empty: the history is the session's
        /// What stands before the prompt until it is over; empty for nothing. Looked at once a second, and
        /// after each nudge.
        std::function<std::string()> notice = nullptr;
        bool hasColours = false;
        /// Keys that come between two lines wait for the next one; otherwise the terminal has its own modes
        /// then, and Ctrl-C is a signal.
        bool keepsKeys = true;
        /// Is told, once, why the history is not kept.
        std::function<void(const std::string& reason)> historyLost = nullptr;
    };

    LineEditor(InputWaiter& waiter, Completer completer);
    LineEditor(InputWaiter& waiter, Completer completer, Settings settings);
    ~LineEditor();  ///< gives the terminal its modes back
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    /// A nudge of the waiter writes prompt and line again. Ctrl-C empties the line. Nothing at the end of
    /// input, at Ctrl-C on an empty line, and when the waiter is stopped.
    std::optional<std::string> read();
    /// Whether read() gave nothing for Ctrl-C.
    bool isInterrupted() const { return m_isInterrupted; }
    /// Whether Ctrl-C has emptied a line since read() was called last.
    bool hasEmptied() const { return m_hasEmptied; }

private:
    struct EditorEnd {
        void operator()(EditLine* pEditor) const { el_end(pEditor); }
    };
    struct HistoryEnd {
        void operator()(History* pHistory) const { history_end(pHistory); }
    };
    struct FileEnd {
        void operator()(std::FILE* pFile) const { std::fclose(pFile); }
    };
    /// Where something stands on the screen, counted from the prompt's begin.
    struct Place {
        std::size_t row = 0;
        std::size_t column = 0;
    };

    static LineEditor& self(EditLine* pEditor);
    static wchar_t* prompt(EditLine* pEditor);
    static int readCharacter(EditLine* pEditor, wchar_t* pCharacter);
    static unsigned char complete(EditLine* pEditor, int character);
    static unsigned char interrupt(EditLine* pEditor, int character);

    void makePrompt();
    Place placeOf(const char* pEnd) const;
    void erase(bool isResized) const;
    void refresh(bool isResized);
    void keep(const std::string& line);
    void sayNotKept(const std::string& reason);

    InputWaiter& m_waiter;
    const Completer m_completer;
    const Settings m_settings;
    const HistoryFile m_historyFile;
    bool m_isLossSaid = false;
    bool m_wasInterruptPressed = false;
    bool m_isInterrupted = false;
    bool m_hasEmptied = false;
    std::string m_notice;  ///< as it stands in the prompt
    std::wstring m_prompt;
    /// Goes after the editor, which writes to it. None without a relay.
    std::unique_ptr<std::FILE, FileEnd> m_pTerminal;
    std::FILE* m_pOutput;
    // The editor uses the history, so it goes first.
    std::unique_ptr<History, HistoryEnd> m_pHistory;
    std::unique_ptr<EditLine, EditorEnd> m_pEditor;
};
