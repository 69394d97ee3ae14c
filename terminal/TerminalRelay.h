#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "UniqueFd.h"
#include "Wakeup.h"

/// The one road of output to the operator's terminal, so that nothing is printed into the line that is being
/// typed. Standard output, and standard error where it is that terminal, lead into a pseudo-terminal of the
/// host's own, for its threads, the drivers in its process and its driver processes alike. A thread passes on
/// what arrives there at once, and keeps it for the editor while a line is on the screen. Made by main before
/// the log and every other thread; goes after them.
class TerminalRelay {
public:
    /// Leaves one alone whose thread is held up by a terminal that takes nothing: it goes with the process.
    struct End {
        void operator()(TerminalRelay* pRelay) const {
            if (pRelay->finish())
                delete pRelay;
        }
    };
    using Pointer = std::unique_ptr<TerminalRelay, End>;

    /// Null, and why, when the system gives no pseudo-terminal or thread: output goes straight to the
    /// terminal then.
    static Pointer make(std::string& error);
    ~TerminalRelay();
    TerminalRelay(const TerminalRelay&) = delete;
    TerminalRelay& operator=(const TerminalRelay&) = delete;

    /// The operator's terminal itself, for the editor.
    int terminal() const { return m_terminal.get(); }
    /// Where standard error led before: for processes that outlive this one, and with it the
    /// pseudo-terminal. -1 where standard error leads elsewhere and still does.
    int formerErrors() const { return m_takesErrors ? m_terminal.get() : -1; }

    /// Is told each line that is printed, on the relay's thread; null: nobody is any more.
    void watchLines(std::function<void(const std::string& line)> onLine);

    /// A line is on the screen from now on: whole lines that are printed are kept for take(), and onOutput is
    /// called, on the relay's thread, when there are some. All that was printed before stands on the screen,
    /// and the cursor at the front of a row. Console thread, as the next two.
    void hold(std::function<void()> onOutput);
    /// What was printed meanwhile, which the caller shows.
    std::string take();
    /// The line is finished: what is printed is passed on again.
    void release();

    /// The operator's terminal has another size: those who ask standard output for it are told so.
    void copySize() const;

    /// Waits until all that was printed before this call has been passed on or kept; false when it was not
    /// within that time. Any thread.
    bool settle(std::chrono::milliseconds patience);

private:
    TerminalRelay(base::UniqueFd terminal, base::UniqueFd controller, base::UniqueFd user, bool takesErrors);

    /// Gives both streams back and writes what is left; false when that is not done within a second.
    bool finish();
    void redirect(int to) const;
    void run();
    void receive(const std::string& bytes);
    void arrived(const std::string& text);
    void tellLines(const std::string& text);
    void keepRest();
    void write(const std::string& text);

    const base::UniqueFd m_terminal;
    const base::UniqueFd m_controller;
    const base::UniqueFd m_user;  ///< the end that is written to; never waits
    const bool m_takesErrors;     ///< standard error goes this way as well
    const base::Wakeup m_end;

    /// Held for moments only.
    std::mutex m_markMutex;
    std::condition_variable m_settled;
    std::uint64_t m_marksSent = 0;
    std::uint64_t m_marksSeen = 0;

    /// Held while the terminal is written to, however long that takes.
    std::mutex m_mutex;
    std::function<void()> m_onOutput;  ///< of the line on the screen; none while there is none
    std::string m_kept;                ///< whole lines
    std::string m_rest;                ///< the begin of the next one
    bool m_isAtFront = true;           ///< the cursor, of what was passed on

    std::mutex m_lineMutex;
    std::function<void(const std::string& line)> m_onLine;

    std::string m_line;    ///< the thread's own: what has come of one that is watched
    std::string m_unread;  ///< the thread's own: what may be the begin of a mark
    std::atomic<bool> m_stopping = false;
    std::thread m_thread;
};
