#include "Console.h"

#include <unistd.h>

#include <cstring>
#include <iostream>
#include <optional>
#include <utility>

#include "HostLog.h"
#include "LineReader.h"
#include "Needed.h"
#include "ThreadName.h"

Console::Console(Handlers handlers, LineEditor::Settings settings, std::chrono::milliseconds endStands)
    : m_handlers(std::move(handlers)),
      m_settings(std::move(settings)),
      m_endStands(endStands),
      m_waiter(STDIN_FILENO) {}

Console::~Console() {
    stop();
    if (m_thread.joinable())
        m_thread.join();
}

bool Console::isInteractive() {
    return ::isatty(STDIN_FILENO) && ::isatty(STDOUT_FILENO);
}

void Console::start() {
    m_thread = base::neededThread("the console", [this] { run(); });
}

void Console::stop() {
    m_waiter.stop();
}

void Console::run() {
    base::nameThread("console");
    if (isInteractive())
        readTerminal();
    else
        readLines();
}

void Console::readTerminal() {
    m_waiter.watchSize();
    LineEditor editor(m_waiter, m_handlers.complete, m_settings);
    using Clock = std::chrono::steady_clock;
    // A slip on a key must not stop a workplace; the second one in a row means it, unless the first one was
    // long ago.
    std::optional<Clock::time_point> ending;
    while (!m_waiter.isStopped()) {
        const auto line = editor.read();
        if (m_waiter.isStopped())
            return;
        // A line that was typed and emptied again stood between the two.
        if (line || editor.hasEmptied())
            ending.reset();
        const auto before = line ? std::nullopt : std::exchange(ending, Clock::now());
        if (line) {
            m_handlers.line(*line);
        } else if (!before || *ending - *before > m_endStands) {
            // What Ctrl-C was pressed on has ended its row already.
            std::cout << (editor.isInterrupted() ? "" : "\n") << "To shut down, type quit or press "
                      << (editor.isInterrupted() ? "Ctrl-C" : "Ctrl-D") << " again." << std::endl;
        } else {
            std::cout << std::endl;
            m_handlers.end();
            return;
        }
    }
}

void Console::readLines() {
    LineReader reader(STDIN_FILENO, m_waiter);
    for (std::string line;;) {
        switch (reader.read(line)) {
            case LineReader::EResult::Line:
                m_handlers.line(line);
                break;
            case LineReader::EResult::TooLong:
                hostLog(sal::LogOutput::eError) << "a console line of more than " << LineReader::s_maxLine
                                                << " bytes is ignored" << std::endl;
                if (m_handlers.lineTooLong)
                    m_handlers.lineTooLong();
                break;
            case LineReader::EResult::End:
                if (reader.error() != 0)
                    hostLog(sal::LogOutput::eError)
                        << "standard input cannot be read: " << std::strerror(reader.error()) << std::endl;
                m_handlers.end();
                return;
            case LineReader::EResult::Stopped:
                return;
        }
    }
}
