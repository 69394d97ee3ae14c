#pragma once

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "HangGuard.h"

/// A process of its own whose standard streams are a terminal, at which the test types and whose screen it
/// sees. Killed with the object.
class Terminal {
public:
    /// The body runs in the new process, which ends with it.
    explicit Terminal(const std::function<void()>& body) {
        m_pid = ::forkpty(&m_fd, nullptr, nullptr, nullptr);
        if (m_pid < 0)
            throw std::runtime_error("no terminal");
        if (m_pid > 0)
            return;
        // A job in the background of a shell ignores it.
        ::signal(SIGINT, SIG_DFL);
        ::setenv("TERM", "xterm", 1);
        body();
        ::_exit(0);
    }
    ~Terminal() {
        if (!m_exit) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    pid_t pid() const { return m_pid; }
    const std::string& screen() const { return m_screen; }

    bool type(const std::string& keys) const {
        return ::write(m_fd, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size());
    }
    /// Takes the terminal away, as a window that is closed does.
    void hangUp() { ::close(std::exchange(m_fd, -1)); }
    /// Whether the text is on the screen by now or comes in time.
    bool shows(const std::string& text) {
        return eventually([&] {
            if (m_screen.find(text) == std::string::npos)
                read();
            return m_screen.find(text) != std::string::npos;
        });
    }
    /// The same for whatever is to be seen in all that is on the screen.
    template <class Condition>
    bool comesTo(Condition condition) {
        return eventually([&] {
            read();
            return condition(m_screen);
        });
    }
    /// Whether nothing of the text comes in half a second.
    bool staysWithout(const std::string& text) {
        for (int look = 0; look < 10; ++look)
            read();
        return m_screen.find(text) == std::string::npos;
    }
    void resize(unsigned short columns) const {
        const winsize size{24, columns, 0, 0};
        ::ioctl(m_fd, TIOCSWINSZ, &size);
    }
    /// Waits until the editor waits for keys, and clears the screen. The prompt stands before the editor has
    /// taken the terminal over; a key in between would mean something else.
    bool awaitPrompt() {
        const bool isShown = shows("mfhost> ");
        m_screen.clear();
        return isShown && eventually([this] { return !takesLines(); });
    }
    /// Whether the terminal has the modes in which lines are typed and shown by itself.
    bool takesLines() const {
        termios modes{};
        return ::tcgetattr(m_fd, &modes) == 0 && (modes.c_lflag & (ICANON | ECHO)) == (ICANON | ECHO);
    }

    /// The exit code of the process, or 128 and the signal that ended it; nothing when it does not end.
    std::optional<int> waitForEnd() {
        eventually([this] {
            // Nobody else makes room for what it writes.
            read();
            int status = 0;
            if (!m_exit && ::waitpid(m_pid, &status, WNOHANG) == m_pid)
                m_exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return m_exit.has_value();
        });
        return m_exit;
    }

private:
    void read() {
        pollfd terminal{m_fd, POLLIN, 0};
        if (::poll(&terminal, 1, 50) <= 0)
            return;
        char chunk[1024];
        const ssize_t count = ::read(m_fd, chunk, sizeof chunk);
        m_screen.append(chunk, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }

    int m_fd = -1;
    pid_t m_pid = -1;
    std::optional<int> m_exit;
    std::string m_screen;
};
