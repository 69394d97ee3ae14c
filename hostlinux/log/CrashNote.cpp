#include "sal/CrashNote.h"

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <string_view>

#include "ErrorPipe.h"
#include "Printable.h"
#include "sal/LogOutput.h"

namespace sal {
namespace {

constexpr std::string_view s_before = "Dies of signal ";
constexpr std::string_view s_between = " on thread ";
constexpr int s_signals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS};
constexpr std::int64_t s_patienceMs = 3000;
/// For the handler, since the thread's own stack may be used up.
alignas(16) std::array<char, 64u << 10> s_stack;

/// What the handler reads: written before it is installed.
struct Note {
    pid_t process = 0;
    dev_t device = 0;  ///< with the inode, the pipe to the host
    ino_t inode = 0;
    std::array<char, 400> name{};  ///< of driver and output
} s_note;

/// Puts a line together where nothing may be allocated. What does not fit is left out.
class HandlerLine {
public:
    HandlerLine& add(std::string_view text) {
        m_length += text.copy(m_text.data() + m_length, m_text.size() - m_length);
        return *this;
    }
    HandlerLine& add(std::int64_t number) {
        const auto end = std::to_chars(m_text.data() + m_length, m_text.data() + m_text.size(), number);
        if (end.ec == std::errc())
            m_length = static_cast<std::size_t>(end.ptr - m_text.data());
        return *this;
    }
    const char* data() const { return m_text.data(); }
    std::size_t length() const { return m_length; }

private:
    std::array<char, 512> m_text;
    std::size_t m_length = 0;
};

std::int64_t milliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

/// A driver may have something else there.
bool isPipeInPlace() {
    struct stat present {};
    return ::fstat(STDERR_FILENO, &present) == 0 && present.st_dev == s_note.device &&
           present.st_ino == s_note.inode;
}

/// False when the host does not read it now, or any more.
bool say(int signal) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    HandlerLine line;
    // After text without a line end, if need be.
    line.add("\n\x1e").add(LogOutput::eCritical).add("\x1f");
    line.add(std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec).add("\x1f");
    line.add(s_note.name.data()).add("\x1f");
    line.add(s_before).add(signal).add(s_between).add(::syscall(SYS_gettid)).add("\n");
    pollfd pipe{STDERR_FILENO, POLLOUT, 0};
    return ::poll(&pipe, 1, 0) == 1 && pipe.revents == POLLOUT &&
           ::write(STDERR_FILENO, line.data(), line.length()) == static_cast<ssize_t>(line.length());
}

/// Until the host has ended or the time is over; the host ends this process before.
void waitForHost() {
    const std::int64_t end = milliseconds() + s_patienceMs;
    for (std::int64_t left = s_patienceMs; left > 0; left = end - milliseconds()) {
        pollfd pipe{STDERR_FILENO, 0, 0};
        if (::poll(&pipe, 1, static_cast<int>(left)) >= 0 || errno != EINTR)
            return;
    }
}

/// The signal has its default effect from here on, so that the next one ends the process; another handler,
/// which may have called this one, would have blocked it.
void onCrash(int signal) {
    ::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    // A program that the driver is about to start is none that the host knows.
    if (::getpid() == s_note.process && isPipeInPlace() && say(signal))
        waitForHost();
    ::syscall(SYS_tgkill, ::getpid(), ::syscall(SYS_gettid), signal);
}

}  // namespace

void CrashNote::install(const std::string& driverID) {
    struct sigaction present {};
    struct stat pipe {};
    if (!ErrorPipe::isInPlace() || ::fstat(STDERR_FILENO, &pipe) != 0 ||
        ::sigaction(SIGSEGV, nullptr, &present) != 0 || present.sa_handler != SIG_DFL)
        return;
    const std::string name = base::printable(driverID) + " MFD";
    s_note.process = ::getpid();
    s_note.device = pipe.st_dev;
    s_note.inode = pipe.st_ino;
    name.copy(s_note.name.data(), s_note.name.size() - 1);
    stack_t stack{};
    stack.ss_sp = s_stack.data();
    stack.ss_size = s_stack.size();
    ::sigaltstack(&stack, nullptr);
    struct sigaction action {};
    action.sa_handler = onCrash;
    action.sa_flags = SA_RESETHAND | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (const int signal : s_signals)
        ::sigaction(signal, &action, nullptr);
}

std::optional<CrashNote::Crash> CrashNote::in(const std::string& text) {
    if (!text.starts_with(s_before))
        return std::nullopt;
    const char* const pEnd = text.data() + text.size();
    Crash crash;
    auto read = std::from_chars(text.data() + s_before.size(), pEnd, crash.signal);
    const std::string_view rest(read.ptr, static_cast<std::size_t>(pEnd - read.ptr));
    if (read.ec != std::errc() || !rest.starts_with(s_between))
        return std::nullopt;
    read = std::from_chars(rest.data() + s_between.size(), pEnd, crash.thread);
    const bool isKnown =
        std::find(std::begin(s_signals), std::end(s_signals), crash.signal) != std::end(s_signals);
    return read.ec == std::errc() && read.ptr == pEnd && isKnown && crash.thread > 0
               ? std::optional<Crash>(crash)
               : std::nullopt;
}

}  // namespace sal
