#pragma once

#include <histedit.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "InputWaiter.h"

/// Reads lines from a terminal, with editing, a history of the session, and completion. Console thread.
class LineEditor {
public:
    /// The words that may follow those typed so far and begin with the prefix. Called on the console
    /// thread.
    using Completer = std::function<std::vector<std::string>(const std::vector<std::string>& before,
                                                             const std::string& prefix)>;

    LineEditor(InputWaiter& waiter, Completer completer);
    ~LineEditor();  ///< gives the terminal its modes back
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    /// Goes to the front of the line and empties it.
    static constexpr const char* s_eraseLine = "\r\x1b[K";

    /// A nudge of the waiter writes prompt and line again. Nothing at the end of input and when the waiter is
    /// stopped.
    std::optional<std::string> read();

private:
    struct EditorEnd {
        void operator()(EditLine* pEditor) const { el_end(pEditor); }
    };
    struct HistoryEnd {
        void operator()(History* pHistory) const { history_end(pHistory); }
    };

    static LineEditor& self(EditLine* pEditor);
    static char* prompt(EditLine* pEditor);
    static int readCharacter(EditLine* pEditor, wchar_t* pCharacter);
    static unsigned char complete(EditLine* pEditor, int character);

    InputWaiter& m_waiter;
    const Completer m_completer;
    // The editor uses the history, so it goes first.
    std::unique_ptr<History, HistoryEnd> m_pHistory;
    std::unique_ptr<EditLine, EditorEnd> m_pEditor;
};
