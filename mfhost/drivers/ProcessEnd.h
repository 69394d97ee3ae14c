#pragma once

#include <optional>
#include <string>

/// How a child process has ended. Any thread.
class ProcessEnd {
public:
    /// Collects the process of the descriptor; nothing while it runs. Its end is an unknown one when
    /// another part of this process has collected it, or has it collected by ignoring SIGCHLD.
    static std::optional<ProcessEnd> collect(int pidFd);

    bool isKnown() const { return m_isKnown; }
    /// Whether it has ended by itself, with an exit code; false also for an unknown end.
    bool isExit() const { return m_isKnown && m_isExit; }
    /// Whether it may have ended as it was told to: nothing speaks against it.
    bool isOrderly() const { return !m_isKnown || (m_isExit && m_status == 0); }
    bool hasExitCode(int code) const { return m_isKnown && m_isExit && m_status == code; }
    /// As waitpid has it; 0 where it is not known.
    int status() const { return !m_isKnown ? 0 : m_isExit ? m_status << 8 : m_status; }
    /// "exit code 3", "signal 9 (Killed)" or "unknown end".
    std::string cause() const;

private:
    bool m_isKnown = false;
    bool m_isExit = false;
    int m_status = 0;  ///< exit code or signal
};
