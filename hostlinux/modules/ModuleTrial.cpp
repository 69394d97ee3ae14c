#include "ModuleTrial.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "LoadFault.h"
#include "LogLine.h"
#include "MarkedEnvironment.h"
#include "Printable.h"
#include "SpawnSettings.h"
#include "TrialResult.h"
#include "UniqueFd.h"
#include "sal/LogOutput.h"
#include "sal/Path.h"
#include "sal/ProcessFamily.h"

namespace sal {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* s_timeoutName = "MFD_PROBE_TIMEOUT";
constexpr int s_maxTimeout = 3600;
/// What is kept of the end of the standard error.
constexpr std::size_t s_maxWords = 4096;

std::string programBesideThisOne(const std::string& name) {
    return Path::getExeBasePath().getPathString() + "/" + name;
}

/// One trial: the child process and what it says. Ends the child and all that it started.
class Trial {
public:
    Trial() = default;
    ~Trial() {
        if (m_pid > 0 && !m_isReaped)
            finish();
    }
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;

    /// 0, or the system's error number.
    int start(const std::string& program, const std::string& path) {
        base::UniqueFd errors;
        base::UniqueFd result;
        if (!makePipe(m_words, errors) || !makePipe(m_result, result))
            return errno;

        SpawnSettings settings;
        settings.captureErrors(errors.get());
        settings.handOver(result.get());
        std::string title = program;
        std::string module = path;
        std::string parent = std::to_string(::getpid());
        std::array<char*, 4> words{title.data(), module.data(), parent.data(), nullptr};
        const MarkedEnvironment environment({"MFD_PROBE=1"});
        if (const int error = settings.spawn(m_pid, program.c_str(), words.data(), environment.get()))
            return error;
        m_family.emplace(m_pid, environment.mark());
        m_process = base::UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0)));
        // A child that has ended already and that another thread has collected is over, and that is all.
        m_isGone = !m_process && errno == ESRCH;
        return m_process || m_isGone ? 0 : errno;
    }

    /// Whether the process ended by itself in time.
    bool wait(std::chrono::milliseconds deadline) {
        const auto end = Clock::now() + deadline;
        while (m_process) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
            if (left <= 0)
                return false;
            // A closed standard error is no reason to look at it again and again.
            std::array<pollfd, 2> watched{{{m_process.get(), POLLIN, 0}, {m_words.get(), POLLIN, 0}}};
            const int ready = ::poll(watched.data(), m_isSilent ? 1 : 2, static_cast<int>(left));
            if (ready < 0 && errno != EINTR)
                return false;
            if (ready <= 0)
                continue;
            listen();
            if (watched[0].revents != 0)
                return true;
        }
        return true;
    }

    /// How the process ended; it is gone then, with all that it started. Without its number when another
    /// thread of this process has collected it.
    siginfo_t finish() {
        if (m_process)
            ::syscall(SYS_pidfd_send_signal, m_process.get(), SIGKILL, nullptr, 0u);
        else if (!m_isGone)
            ::kill(m_pid, SIGKILL);
        // Dead but not collected, it can start nothing more, and its number is not another's.
        waitFor(WNOWAIT);
        m_family->endOthers();
        const siginfo_t info = waitFor(0);
        m_isReaped = true;
        listen();
        return info;
    }

    /// What it has said itself to be the result; nothing when it ended before that.
    std::optional<int> result() const {
        unsigned char word = 0;
        return ::read(m_result.get(), &word, 1) == 1 ? std::optional<int>(word) : std::nullopt;
    }

    /// Why the loader found that the module cannot be loaded, in its own words; empty where it has not said
    /// so.
    std::string loadFault(const std::string& path) const {
        const std::string begin =
            std::string(s_cannotLoad) + base::printable(path) + std::string(s_faultFollows);
        const auto found = m_text.rfind(begin);
        if (found == std::string::npos)
            return {};
        const auto reason = found + begin.size();
        return base::printable(m_text.substr(reason, m_text.find('\n', reason) - reason));
    }

    /// The last line of the standard error, with what leads to it: ": out of range".
    std::string lastWords() const {
        const auto end = m_text.find_last_not_of(" \t\r\n");
        if (end == std::string::npos)
            return {};
        const auto begin = m_text.find_last_of('\n', end);
        const std::string line = m_text.substr(begin + 1, end - begin);
        return "; it said: " + base::printable(line.substr(line.find_first_not_of(" \t\r")));
    }

private:
    siginfo_t waitFor(int further) const {
        siginfo_t info{};
        while (::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | further) != 0 && errno == EINTR) {
        }
        return info;
    }

    static bool makePipe(base::UniqueFd& reader, base::UniqueFd& writer) {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
            return false;
        reader = base::UniqueFd(ends[0]);
        writer = base::UniqueFd(ends[1]);
        return true;
    }

    void listen() {
        std::array<char, s_maxWords> buffer{};
        ssize_t count = 0;
        // A child that never ceases to write is not listened to for ever.
        for (int i = 0; i < 16 && (count = ::read(m_words.get(), buffer.data(), buffer.size())) > 0; ++i) {
            m_text.append(buffer.data(), static_cast<std::size_t>(count));
            if (m_text.size() > s_maxWords)
                m_text.erase(0, m_text.size() - s_maxWords);
        }
        if (count == 0)
            m_isSilent = true;
    }

    pid_t m_pid = -1;
    std::optional<ProcessFamily> m_family;
    bool m_isGone = false;
    bool m_isReaped = false;
    bool m_isSilent = false;
    base::UniqueFd m_process;
    base::UniqueFd m_words;
    base::UniqueFd m_result;
    std::string m_text;
};

std::string howItEnded(const siginfo_t& info) {
    if (info.si_pid == 0)
        return "ended before it was ready, and how is not known";
    if (info.si_code == CLD_EXITED)
        return "ended with exit code " + std::to_string(info.si_status);
    return "was ended by signal " + std::to_string(info.si_status) + " (" + ::strsignal(info.si_status) + ")";
}

std::optional<int> exitCodeOf(const siginfo_t& info) {
    return info.si_code == CLD_EXITED ? std::optional<int>(info.si_status) : std::nullopt;
}

std::string seconds(std::chrono::milliseconds time) {
    const auto count = time.count();
    return count % 1000 == 0 ? std::to_string(count / 1000) + " s" : std::to_string(count) + " ms";
}

}  // namespace

ModuleTrial::Settings ModuleTrial::Settings::ofProcess() {
    Settings settings{programBesideThisOne("mfdprobe")};
    const char* pText = std::getenv(s_timeoutName);
    if (!pText || !*pText)
        return settings;
    const char* pEnd = pText + std::strlen(pText);
    int number = 0;
    const auto [pStop, error] = std::from_chars(pText, pEnd, number);
    if (error == std::errc() && pStop == pEnd && number >= 0 && number <= s_maxTimeout)
        settings.deadline = std::chrono::seconds(number);
    else
        logLine("MODULE", LogOutput::eWarning,
                std::string(s_timeoutName) + "=" + pText +
                    " is ignored: it is no number of seconds from 0 to " + std::to_string(s_maxTimeout) +
                    "; driver modules get 10");
    return settings;
}

ModuleTrial::ModuleTrial(Settings settings) : m_settings(std::move(settings)) {}

std::string ModuleTrial::refusal(const std::string& path) {
    struct stat status {};
    // What is no file the loader refuses by itself.
    if (m_settings.deadline.count() == 0 || ::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    const File file{status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
                    status.st_mtim.tv_nsec};
    if (hasPassed(file))
        return {};
    const Outcome outcome = tryOut(path);
    if (outcome.hasAnswered) {
        const std::lock_guard lock(m_mutex);
        m_passed.insert(file);
    }
    return outcome.refusal;
}

std::string ModuleTrial::fault(const std::string& path) {
    if (m_settings.deadline.count() == 0)
        return {};
    const Outcome outcome = tryOut(path);
    return outcome.refusal.empty() ? outcome.loadFault : outcome.refusal;
}

ModuleTrial::Outcome ModuleTrial::tryOut(const std::string& path) {
    Trial trial;
    if (const int error = trial.start(m_settings.program, path)) {
        sayUntried(path, error);
        return {};
    }
    Outcome outcome;
    const bool isInTime = trial.wait(m_settings.deadline);
    const siginfo_t info = trial.finish();
    const auto result = info.si_pid == 0 ? trial.result() : exitCodeOf(info);
    if (!isInTime)
        outcome.refusal = "tried out in a process of its own, it was not ready within " +
                          seconds(m_settings.deadline) + trial.lastWords();
    else if (result == TrialResult::s_notLoaded)
        outcome.loadFault = trial.loadFault(path);
    else if (result != TrialResult::s_answered)
        outcome.refusal =
            "tried out in a process of its own, that process " + howItEnded(info) + trial.lastWords();
    else
        outcome.hasAnswered = true;
    return outcome;
}

bool ModuleTrial::hasPassed(const File& file) const {
    const std::lock_guard lock(m_mutex);
    return m_passed.contains(file);
}

void ModuleTrial::sayUntried(const std::string& path, int error) {
    const bool isAbsent = error == ENOENT;
    {
        const std::lock_guard lock(m_mutex);
        if (isAbsent && std::exchange(m_isAbsenceSaid, true))
            return;
    }
    logLine("MODULE", LogOutput::eWarning,
            isAbsent ? "there is no " + m_settings.program +
                           "; driver modules are loaded into this process without being tried out"
                     : path + " is loaded without being tried out: " + m_settings.program + ": " +
                           std::strerror(error));
}

}  // namespace sal
