#pragma once

#include <histedit.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Lines for a console that is attached to: edited where they are typed at a terminal, with a history of the
/// session and completion; plain where they come from a pipe or a file. Main thread.
class ConsoleInput {
public:
    /// The words that may follow those before and begin with the prefix.
    using Completer = std::function<std::vector<std::string>(const std::vector<std::string>& before,
                                                             const std::string& prefix)>;

    ConsoleInput(std::string prompt, Completer completer);
    ~ConsoleInput();  ///< gives the terminal its modes back
    ConsoleInput(const ConsoleInput&) = delete;
    ConsoleInput& operator=(const ConsoleInput&) = delete;

    /// Whether a person types.
    bool isInteractive() const { return m_pEditor != nullptr; }

    /// The next line without its end; nothing at the end of input (at a terminal: Ctrl-D on an empty line).
    /// Ctrl-C empties the line.
    std::optional<std::string> read();

private:
    struct EditorEnd {
        void operator()(EditLine* pEditor) const { el_end(pEditor); }
    };
    struct HistoryEnd {
        void operator()(History* pHistory) const { history_end(pHistory); }
    };

    static ConsoleInput& self(EditLine* pEditor);
    static char* prompt(EditLine* pEditor);
    static unsigned char complete(EditLine* pEditor, int character);
    static unsigned char discard(EditLine* pEditor, int character);

    std::string m_prompt;
    const Completer m_completer;
    // The editor uses the history, so it goes first.
    std::unique_ptr<History, HistoryEnd> m_pHistory;
    std::unique_ptr<EditLine, EditorEnd> m_pEditor;
};
