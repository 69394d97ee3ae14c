#pragma once

#include <memory>
#include <optional>
#include <string>

#include "InputWaiter.h"
#include "LineEditor.h"

/// Lines for a console that is attached to: edited where they are typed at a terminal, as at the host's own
/// console and with its history; plain where they come from a pipe or a file. Main thread.
class ConsoleInput {
public:
    /// The completer's words are those that may follow; the settings are the editor's, but for the keys that
    /// come between two lines: Ctrl-C ends a program that waits for a host.
    ConsoleInput(LineEditor::Completer completer, LineEditor::Settings settings);
    ConsoleInput(const ConsoleInput&) = delete;
    ConsoleInput& operator=(const ConsoleInput&) = delete;

    /// Whether a person types.
    bool isInteractive() const { return m_pEditor != nullptr; }

    /// The next line without its end; nothing at the end of input (at a terminal: Ctrl-D on an empty line).
    /// Ctrl-C empties the line.
    std::optional<std::string> read();

private:
    InputWaiter m_waiter;
    std::unique_ptr<LineEditor> m_pEditor;
};
