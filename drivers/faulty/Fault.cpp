#include "Fault.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point endOf(int milliseconds) {
    return milliseconds == 0 ? Clock::time_point::max()
                             : Clock::now() + std::chrono::milliseconds(milliseconds);
}

/// Reads the clock all the time, which the compiler may not leave out.
void spin(int milliseconds) {
    const auto end = endOf(milliseconds);
    while (Clock::now() < end) {
    }
}

void rest(int milliseconds) {
    const auto end = endOf(milliseconds);
    while (Clock::now() < end)
        std::this_thread::sleep_until(std::min(end, Clock::now() + std::chrono::hours(1)));
}

/// A real access, not a signal that is sent: its address is what a crash report shows. No sanitizer is to see
/// it first.
__attribute__((no_sanitize("address", "undefined", "thread"))) void writeToNowhere() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // A sanitizer's handler would make an ordinary end of it.
    ::signal(SIGSEGV, SIG_DFL);
#endif
    volatile int* volatile pNowhere = nullptr;
    *pNowhere = 1;  // cppcheck-suppress nullPointer ; that is the fault
}

/// The name by which a test finds such a process.
constexpr const char* s_orphanName = "left-behind";

/// Keeps whatever it has got from its parent until it is ended.
[[noreturn]] void stayBehind() {
    ::prctl(PR_SET_NAME, s_orphanName);
    for (;;)
        ::pause();
}

/// Only what is safe in the child of a process with threads.
void leaveChild(bool isInSessionOfItsOwn) {
    const pid_t child = ::fork();
    if (child < 0)
        throw std::system_error(errno, std::generic_category(), "no child can be had");
    if (child > 0) {
        if (isInSessionOfItsOwn)
            ::waitpid(child, nullptr, 0);
        return;
    }
    if (!isInSessionOfItsOwn)
        stayBehind();
    ::setsid();
    if (::fork() == 0)
        stayBehind();
    ::_exit(0);
}

[[noreturn]] void becomeAnotherProgram() {
    ::execl("/bin/sleep", "sleep", "86400", nullptr);
    throw std::system_error(errno, std::generic_category(), "/bin/sleep cannot be run");
}

/// Each queue's file is among them. A mapping keeps the locks that say who is there, so they are given up
/// first.
void closeLocks() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    for (int fd = STDERR_FILENO + 1; fd < static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 4096)); ++fd) {
        struct flock all {};
        all.l_type = F_UNLCK;
        all.l_whence = SEEK_SET;
        ::fcntl(fd, F_OFD_SETLK, &all);
    }
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
}

void ignoreSignals() {
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2, SIGALRM})
        ::signal(signal, SIG_IGN);
}

/// Waits for the reader.
void print(int descriptor, int mebibytes) {
    static const std::string s_line = std::string(1022, '.') + "\n";
    for (long left = 1024L * mebibytes; mebibytes == 0 || left > 0; --left) {
        for (std::size_t done = 0; done < s_line.size();) {
            const ssize_t count = ::write(descriptor, s_line.data() + done, s_line.size() - done);
            if (count < 0 && errno != EINTR && errno != EAGAIN)
                throw std::system_error(errno, std::generic_category(), "cannot print");
            done += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
    }
}

}  // namespace

struct Fault::Word {
    const char* text;
    EKind kind;
    const char* number;  ///< what the number stands for; null for a word without one
    int most;
};

const Fault::Word Fault::s_words[] = {
    {"crash", EKind::Crash, nullptr, 0},
    {"abort", EKind::Abort, nullptr, 0},
    {"exit", EKind::Exit, "exit code", 255},
    {"kill", EKind::Kill, nullptr, 0},
    {"busy", EKind::Busy, "milliseconds, 0 for ever", 86400000},
    {"sleep", EKind::Sleep, "milliseconds, 0 for ever", 86400000},
    {"throw", EKind::Throw, nullptr, 0},
    {"thrownumber", EKind::ThrowNumber, nullptr, 0},
    {"fail", EKind::Fail, nullptr, 0},
    {"fork", EKind::Fork, nullptr, 0},
    {"forkaway", EKind::ForkAway, nullptr, 0},
    {"exec", EKind::Exec, nullptr, 0},
    {"closelocks", EKind::CloseLocks, nullptr, 0},
    {"ignoresignals", EKind::IgnoreSignals, nullptr, 0},
    {"print", EKind::Print, "mebibytes, 0 for ever", 1024},
    {"printlog", EKind::PrintLog, "mebibytes, 0 for ever", 1024},
};

std::optional<Fault> Fault::parse(const std::string& text, std::string& error) {
    std::istringstream stream(text);
    std::string name;
    std::string number;
    std::string rest;
    stream >> name >> number >> rest;
    const auto word =
        std::find_if(std::begin(s_words), std::end(s_words), [&](const Word& w) { return name == w.text; });
    if (word == std::end(s_words)) {
        error = "\"" + text + "\" is no fault; there are " + words();
        return std::nullopt;
    }
    int value = 0;
    const char* pEnd = number.data() + number.size();
    const auto [pStop, code] = std::from_chars(number.data(), pEnd, value);
    const bool isNumber = code == std::errc() && pStop == pEnd && value >= 0 && value <= word->most;
    if (!rest.empty() || (!number.empty() && (!word->number || !isNumber))) {
        error = "\"" + text + "\": " + name +
                (word->number ? " takes a number from 0 to " + std::to_string(word->most)
                              : std::string(" takes nothing"));
        return std::nullopt;
    }
    return Fault(word->kind, value);
}

std::string Fault::words() {
    std::string text;
    for (const Word& word : s_words)
        text += (text.empty() ? "" : ", ") + std::string(word.text) +
                (word.number ? " (" + std::string(word.number) + ")" : std::string());
    return text;
}

bool Fault::strike() const {
    switch (m_kind) {
        case EKind::Crash:
            writeToNowhere();
            break;
        case EKind::Abort:
            std::abort();
        case EKind::Exit:
            std::exit(m_number);
        case EKind::Kill:
            ::raise(SIGKILL);
            break;
        case EKind::Busy:
            spin(m_number);
            break;
        case EKind::Sleep:
            ::rest(m_number);
            break;
        case EKind::Throw:
            throw std::runtime_error("thrown on purpose");
        case EKind::ThrowNumber:
            throw 42;
        case EKind::Fail:
            return false;
        case EKind::Fork:
            leaveChild(false);
            break;
        case EKind::ForkAway:
            leaveChild(true);
            break;
        case EKind::Exec:
            becomeAnotherProgram();
        case EKind::CloseLocks:
            closeLocks();
            break;
        case EKind::IgnoreSignals:
            ignoreSignals();
            break;
        case EKind::Print:
            print(STDOUT_FILENO, m_number);
            break;
        case EKind::PrintLog:
            print(STDERR_FILENO, m_number);
            break;
    }
    return true;
}

std::string Fault::text() const {
    const auto word = std::find_if(std::begin(s_words), std::end(s_words),
                                   [this](const Word& w) { return w.kind == m_kind; });
    return word->text + (word->number ? " " + std::to_string(m_number) : std::string());
}
