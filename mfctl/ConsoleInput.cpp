#include "ConsoleInput.h"

#include <unistd.h>

#include <iostream>
#include <utility>

ConsoleInput::ConsoleInput(LineEditor::Completer completer, LineEditor::Settings settings)
    : m_waiter(STDIN_FILENO) {
    if (!::isatty(STDIN_FILENO) || !::isatty(STDOUT_FILENO))
        return;
    m_waiter.watchSize();
    settings.keepsKeys = false;
    m_pEditor = std::make_unique<LineEditor>(m_waiter, std::move(completer), std::move(settings));
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
    for (;;) {
        std::cout << std::flush;
        auto typed = m_pEditor->read();
        if (typed || !m_pEditor->isInterrupted())
            return typed;
    }
}
