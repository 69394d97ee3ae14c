#include "TerminalRelay.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string_view>
#include <system_error>
#include <utility>

#include "Needed.h"
#include "TerminalModes.h"
#include "ThreadName.h"

namespace {

/// Follows what was printed before it through the pseudo-terminal, and is taken out at its end. A terminal
/// that saw it would show nothing.
constexpr std::string_view s_mark = "\x1b]7777;mfhost\x07";
/// A line that is begun and not ended is shown after that time.
constexpr std::chrono::milliseconds s_restPatience{200};
/// How long the editor waits for what was printed before its line.
constexpr std::chrono::milliseconds s_settlePatience{300};
/// How long the end waits for a terminal that takes nothing.
constexpr std::chrono::milliseconds s_endPatience{1000};
/// One that is longer is told to nobody.
constexpr std::size_t s_longestLine = 64u << 10;
/// More is left to those who print: they wait.
constexpr std::size_t s_mostKept = 256u << 10;

// For a process that crashes: its last words are on their way to the terminal.
std::atomic<int> s_controller = -1;
std::atomic<int> s_terminal = -1;

/// It ends the process as it would have without a handler, which is taken away when it is called.
void onCrash(int signal) {
    const int saved = errno;
    restoreTerminalModes();
    for (int looks = 0; looks < 10; ++looks) {
        char chunk[4096];
        pollfd printed{s_controller, POLLIN, 0};
        if (::poll(&printed, 1, 10) <= 0)
            continue;
        const ssize_t count = ::read(s_controller, chunk, sizeof chunk);
        // The relay's thread may have been faster.
        if (count > 0 && ::write(s_terminal, chunk, static_cast<std::size_t>(count)) < 0)
            break;
    }
    errno = saved;
    ::raise(signal);
}

void watchCrashes() {
    for (const int signal : {SIGABRT, SIGSEGV, SIGFPE, SIGILL}) {
        struct sigaction action {};
        if (::sigaction(signal, nullptr, &action) != 0 || action.sa_handler != SIG_DFL)
            continue;
        action.sa_handler = onCrash;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        ::sigaction(signal, &action, nullptr);
    }
}

bool isSameFile(int left, int right) {
    struct stat one {};
    struct stat other {};
    return ::fstat(left, &one) == 0 && ::fstat(right, &other) == 0 && one.st_rdev == other.st_rdev &&
           one.st_ino == other.st_ino;
}

/// Passes all bytes as they are.
bool makeRaw(int fd) {
    termios modes{};
    if (::tcgetattr(fd, &modes) != 0)
        return false;
    ::cfmakeraw(&modes);
    return ::tcsetattr(fd, TCSANOW, &modes) == 0;
}

}  // namespace

TerminalRelay::Pointer TerminalRelay::make(std::string& error) {
    const auto failed = [&error](const char* what) {
        error = std::string(what) + ": " + std::strerror(errno);
        return nullptr;
    };
    base::UniqueFd terminal(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!terminal)
        return failed("no descriptor");
    base::UniqueFd controller(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    if (!controller || ::unlockpt(controller.get()) != 0)
        return failed("no pseudo-terminal");
    constexpr int flags = O_RDWR | O_NOCTTY | O_CLOEXEC;
    // By its number and not by a path, which a sandbox may not have.
    base::UniqueFd output(::ioctl(controller.get(), TIOCGPTPEER, flags));
    base::UniqueFd user(::ioctl(controller.get(), TIOCGPTPEER, flags | O_NONBLOCK));
    if (!output || !user || !makeRaw(output.get()))
        return failed("no pseudo-terminal");
    const bool takesErrors = ::isatty(STDERR_FILENO) && isSameFile(STDOUT_FILENO, STDERR_FILENO);
    try {
        Pointer pRelay(
            new TerminalRelay(std::move(terminal), std::move(controller), std::move(user), takesErrors));
        pRelay->copySize();
        pRelay->redirect(output.get());
        return pRelay;
    } catch (const std::exception& exception) {
        error = exception.what();
        return nullptr;
    }
}

TerminalRelay::TerminalRelay(base::UniqueFd terminal, base::UniqueFd controller, base::UniqueFd user,
                             bool takesErrors)
    : m_terminal(std::move(terminal)),
      m_controller(std::move(controller)),
      m_user(std::move(user)),
      m_takesErrors(takesErrors),
      m_end("the terminal"),
      m_thread(base::neededThread("the terminal", [this] { run(); })) {
    s_controller = m_controller.get();
    s_terminal = m_terminal.get();
    watchCrashes();
}

bool TerminalRelay::finish() {
    std::cout.flush();
    std::fflush(stdout);
    redirect(m_terminal.get());
    if (!settle(s_endPatience))
        return false;
    release();
    return true;
}

TerminalRelay::~TerminalRelay() {
    m_stopping = true;
    m_end.wake();
    m_thread.join();
    s_controller = -1;
    s_terminal = -1;
}

void TerminalRelay::redirect(int to) const {
    ::dup2(to, STDOUT_FILENO);
    if (m_takesErrors)
        ::dup2(to, STDERR_FILENO);
}

void TerminalRelay::hold(std::function<void()> onOutput) {
    settle(s_settlePatience);
    const std::lock_guard lock(m_mutex);
    if (!m_isAtFront)
        write("\n");
    m_onOutput = std::move(onOutput);
}

std::string TerminalRelay::take() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_kept, std::string());
}

void TerminalRelay::release() {
    const std::lock_guard lock(m_mutex);
    m_onOutput = nullptr;
    write(std::exchange(m_kept, std::string()) + std::exchange(m_rest, std::string()));
}

bool TerminalRelay::settle(std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    std::unique_lock lock(m_markMutex);
    // Others wait for the terminal; so would this mark.
    if (::write(m_user.get(), s_mark.data(), s_mark.size()) != static_cast<ssize_t>(s_mark.size()))
        return false;
    const std::uint64_t mark = ++m_marksSent;
    return m_settled.wait_until(lock, end, [&] { return m_marksSeen >= mark; });
}

void TerminalRelay::run() {
    base::nameThread("terminal");
    bool isRestWaiting = false;
    while (!m_stopping) {
        bool isFull = false;
        {
            const std::lock_guard lock(m_mutex);
            isFull = m_kept.size() >= s_mostKept;
        }
        pollfd watched[] = {{isFull ? -1 : m_controller.get(), POLLIN, 0}, {m_end.fd(), POLLIN, 0}};
        const bool isToLook = isFull || isRestWaiting || !m_unread.empty();
        const int timeout = isToLook ? static_cast<int>(s_restPatience.count()) : -1;
        const int count = ::poll(watched, 2, timeout);
        if (count == 0) {
            if (!m_unread.empty())
                arrived(std::exchange(m_unread, std::string()));
            keepRest();
        } else if (count > 0 && watched[0].revents) {
            char chunk[4096];
            const ssize_t size = ::read(m_controller.get(), chunk, sizeof chunk);
            if (size > 0)
                receive(std::string(chunk, static_cast<std::size_t>(size)));
        }
        const std::lock_guard lock(m_mutex);
        isRestWaiting = !m_rest.empty();
    }
}

/// Takes the marks out of what has come.
void TerminalRelay::receive(const std::string& bytes) {
    m_unread += bytes;
    for (std::size_t at = 0; (at = m_unread.find(s_mark)) != std::string::npos;) {
        arrived(m_unread.substr(0, at));
        m_unread.erase(0, at + s_mark.size());
        const std::lock_guard lock(m_markMutex);
        ++m_marksSeen;
        m_settled.notify_all();
    }
    // The begin of one may be at the end.
    std::size_t begun = std::min(m_unread.size(), s_mark.size() - 1);
    while (begun > 0 && !m_unread.ends_with(s_mark.substr(0, begun)))
        --begun;
    arrived(m_unread.substr(0, m_unread.size() - begun));
    m_unread.erase(0, m_unread.size() - begun);
}

void TerminalRelay::arrived(const std::string& text) {
    if (text.empty())
        return;
    tellLines(text);
    const std::lock_guard lock(m_mutex);
    if (!m_onOutput) {
        write(text);
        return;
    }
    m_rest += text;
    const std::size_t whole = m_rest.rfind('\n') + 1;
    if (whole == 0)
        return;
    m_kept += m_rest.substr(0, whole);
    m_rest.erase(0, whole);
    m_onOutput();
}

void TerminalRelay::watchLines(std::function<void(const std::string& line)> onLine) {
    const std::lock_guard lock(m_lineMutex);
    m_onLine = std::move(onLine);
}

void TerminalRelay::tellLines(const std::string& text) {
    const std::lock_guard lock(m_lineMutex);
    if (!m_onLine)
        return;
    m_line += text;
    std::size_t begin = 0;
    for (auto end = m_line.find('\n'); end != std::string::npos; end = m_line.find('\n', begin)) {
        m_onLine(m_line.substr(begin, end - begin));
        begin = end + 1;
    }
    m_line.erase(0, begin);
    if (m_line.size() > s_longestLine)
        m_line.clear();
}

/// A line that is not ended in time is shown as it is, on a row of its own.
void TerminalRelay::keepRest() {
    const std::lock_guard lock(m_mutex);
    if (!m_onOutput || m_rest.empty())
        return;
    m_kept += std::exchange(m_rest, std::string()) + "\n";
    m_onOutput();
}

/// Under the lock. What a terminal that is gone does not take is dropped.
void TerminalRelay::write(const std::string& text) {
    if (text.empty())
        return;
    m_isAtFront = text.back() == '\n';
    for (std::string_view left = text; !left.empty();) {
        const ssize_t count = ::write(m_terminal.get(), left.data(), left.size());
        if (count > 0) {
            left.remove_prefix(static_cast<std::size_t>(count));
        } else if (count < 0 && errno == EAGAIN) {
            // Another process that shares the terminal has made it non-blocking.
            pollfd ready{m_terminal.get(), POLLOUT, 0};
            ::poll(&ready, 1, -1);
        } else if (count < 0 && errno != EINTR) {
            return;
        }
    }
}

void TerminalRelay::copySize() const {
    winsize size{};
    if (::ioctl(m_terminal.get(), TIOCGWINSZ, &size) == 0)
        ::ioctl(m_controller.get(), TIOCSWINSZ, &size);
}
