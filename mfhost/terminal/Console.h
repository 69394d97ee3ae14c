#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "InputWaiter.h"
#include "LineEditor.h"

/// Reads console lines from standard input on a thread of its own: with line editing on a terminal, plainly
/// otherwise. Executes nothing itself. Owned by Host.
class Console {
public:
    struct Handlers {
        /// A line was read. On a terminal the next prompt comes when it returns.
        std::function<void(const std::string& line)> line;
        /// Input has come to its end.
        std::function<void()> end;
        LineEditor::Completer complete;
        /// A line of a script was too long to be one.
        std::function<void()> lineTooLong = nullptr;
    };

    /// At a terminal the settings are the editor's, and the first end of input counts for so long.
    explicit Console(Handlers handlers, LineEditor::Settings settings = {},
                     std::chrono::milliseconds endStands = std::chrono::minutes(1));
    ~Console();  ///< stops reading and gives the terminal its modes back
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// An exception says that no thread can be had.
    void start();
    /// Any thread; returns at once.
    void stop();

    /// Whether lines come from an operator at a terminal.
    static bool isInteractive();

private:
    void run();
    void readTerminal();
    void readLines();

    const Handlers m_handlers;
    const LineEditor::Settings m_settings;
    const std::chrono::milliseconds m_endStands;
    InputWaiter m_waiter;
    std::thread m_thread;
};
