#include "sal/ProcessFamily.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string_view>
#include <thread>

#include "MarkedEnvironment.h"
#include "UniqueFd.h"

namespace sal {

/// What the kernel tells of a process in its "stat".
struct ProcessFamily::Process {
    int pid = 0;
    char state = 0;
    int parent = 0;
    int session = 0;
    bool isOfKernel = false;
    std::uint64_t started = 0;
    std::uint64_t environmentBegin = 0;
    std::uint64_t environmentEnd = 0;
    std::string name;

    Identity identity() const { return {pid, started}; }
    bool isDead() const { return state == 'Z' || state == 'X'; }

    static std::optional<Process> read(int pid);
};

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds s_limit{200};
/// While a process is on its way into another program, which on a busy machine takes its time.
constexpr std::chrono::milliseconds s_longLimit{5000};
constexpr int s_glance = 20;
/// An environment of more is not looked at further; the mark is at its beginning.
constexpr std::size_t s_longestText = 256 * 1024;
constexpr int s_deepest = 50;
constexpr std::size_t s_mostNoted = 10'000;
/// Before the environment of a process that becomes another program is read once more.
constexpr std::chrono::microseconds s_pause{200};
constexpr int s_mostTries = 60;
constexpr int s_fewestLooks = 10;
/// Among the flags in "stat".
constexpr unsigned s_kernelThread = 0x0020'0000;

/// Whether this thread could not read what is there, since descriptors or memory are short.
thread_local bool t_hasMissed = false;

void noteMissed() {
    t_hasMissed = t_hasMissed || errno == EMFILE || errno == ENFILE || errno == ENOMEM;
}

/// Nothing when it cannot be opened.
std::optional<std::string> readFile(const std::string& path) {
    const base::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        noteMissed();
        return std::nullopt;
    }
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t count = 0;
         text.size() < s_longestText && (count = ::read(file.get(), piece.data(), piece.size())) > 0;)
        text.append(piece.data(), static_cast<std::size_t>(count));
    return text;
}

std::string textOf(const std::string& path) {
    return readFile(path).value_or("");
}

std::string placeOf(int pid) {
    return "/proc/" + std::to_string(pid);
}

/// The numbers that name entries of the directory.
std::vector<int> numbersIn(const std::string& directory) {
    struct Close {
        void operator()(DIR* pDirectory) const { ::closedir(pDirectory); }
    };
    std::vector<int> numbers;
    const std::unique_ptr<DIR, Close> pDirectory(::opendir(directory.c_str()));
    if (!pDirectory)
        noteMissed();
    while (const dirent* pEntry = pDirectory ? ::readdir(pDirectory.get()) : nullptr) {
        if (const int number = std::atoi(pEntry->d_name); number > 0)
            numbers.push_back(number);
    }
    return numbers;
}

/// Processes that were ended here. Where the host is the first process of a container, or has been made to
/// take orphans in, they have come to be its children, and nothing else collects them. Any thread.
class EndedOrphans {
public:
    static EndedOrphans& instance() {
        // Never destroyed: a thread may come here while the process ends.
        static EndedOrphans* const s_pInstance = new EndedOrphans;
        return *s_pInstance;
    }

    void add(int pid) {
        const std::lock_guard lock(m_mutex);
        m_ended.emplace_back(pid, Clock::now());
    }

    void collect() {
        const std::lock_guard lock(m_mutex);
        std::erase_if(m_ended, [now = Clock::now()](const auto& ended) {
            // Its parent may have to end first.
            if (now - ended.second < s_patience)
                return false;
            siginfo_t info{};
            const int result = ::waitid(P_PID, static_cast<id_t>(ended.first), &info, WEXITED | WNOHANG);
            return result != 0 || info.si_pid != 0;
        });
    }

private:
    static constexpr std::chrono::milliseconds s_patience{500};

    std::mutex m_mutex;
    std::vector<std::pair<int, Clock::time_point>> m_ended;
};

}  // namespace

std::optional<ProcessFamily::Process> ProcessFamily::Process::read(int pid) {
    const std::string text = textOf(placeOf(pid) + "/stat");
    // The name in parentheses may hold anything, parentheses too.
    const auto nameBegin = text.find('(');
    const auto nameEnd = text.rfind(')');
    if (nameBegin == std::string::npos || nameEnd == std::string::npos || nameEnd < nameBegin)
        return std::nullopt;
    Process process;
    process.pid = pid;
    process.name = text.substr(nameBegin + 1, nameEnd - nameBegin - 1);
    std::istringstream fields(text.substr(nameEnd + 1));
    auto skip = [&fields, skipped = std::string()](int count) mutable {
        for (; count > 0; --count)
            fields >> skipped;
    };
    unsigned flags = 0;
    fields >> process.state >> process.parent;
    skip(1);
    fields >> process.session;
    skip(2);
    fields >> flags;
    process.isOfKernel = (flags & s_kernelThread) != 0;
    skip(12);
    fields >> process.started;
    if (!fields)
        return std::nullopt;
    skip(27);
    fields >> process.environmentBegin >> process.environmentEnd;
    return process;
}

/// How often the environment of processes that are on their way into another program is read again. Counted
/// and not timed: on a busy machine the time is over before such a process has run at all.
struct ProcessFamily::Patience {
    int left = 300;
    bool isUndecided = false;  ///< of one it could not be told whether it is marked
};

/// The first entry that begins so of the environment that the process was started with; empty for none.
std::string ProcessFamily::environmentOf(const Process& process, std::string_view begin, Patience& patience) {
    const auto isReadTooEarly = [&process](const std::optional<std::string>& environment) {
        if (!environment || !environment->empty())
            return false;
        const auto now = Process::read(process.pid);
        if (!now || now->isDead() || now->started != process.started || now->isOfKernel)
            return false;
        // Of another user's process it is not told where the environment is; but that cannot be opened
        // either.
        return now->environmentEnd == 0 || now->environmentEnd != now->environmentBegin;
    };
    std::optional<std::string> environment = readFile(placeOf(process.pid) + "/environ");
    // One that never arrives must not use up what others need.
    for (int tries = s_mostTries; tries > 0 && patience.left > 0 && isReadTooEarly(environment); --tries) {
        --patience.left;
        std::this_thread::sleep_for(s_pause);
        environment = readFile(placeOf(process.pid) + "/environ");
    }
    patience.isUndecided = patience.isUndecided || isReadTooEarly(environment);
    std::string_view rest = environment ? std::string_view(*environment) : std::string_view();
    while (!rest.empty()) {
        const auto end = rest.find('\0');
        if (rest.starts_with(begin))
            return std::string(rest.substr(0, end));
        if (end == std::string_view::npos)
            break;
        rest.remove_prefix(end + 1);
    }
    return {};
}

bool ProcessFamily::isMarked(const Process& process, const std::string& mark, Patience& patience) {
    return environmentOf(process, std::string_view(mark).substr(0, mark.find('=') + 1), patience) == mark;
}

std::vector<ProcessFamily::Member> ProcessFamily::continueStopped(const std::string& word) {
    Patience patience;
    std::vector<Member> continued;
    for (const Process& process : processes()) {
        if (process.state == 'T' && isMarked(process, word, patience) && ::kill(process.pid, SIGCONT) == 0)
            continued.push_back({process.pid, process.name});
    }
    return continued;
}

std::vector<ProcessFamily::Member> ProcessFamily::endMarked(const std::string& word) {
    Patience patience;
    std::set<std::string> marks;
    for (const Process& process : processes()) {
        if (process.pid != ::getpid() && isMarked(process, word, patience))
            marks.insert(environmentOf(process, MarkedEnvironment::s_begin, patience));
    }
    marks.erase("");
    std::vector<Member> ended;
    for (const std::string& mark : marks) {
        const auto result = ProcessFamily(s_none, mark).endOthers();
        ended.insert(ended.end(), result.ended.begin(), result.ended.end());
    }
    return ended;
}

std::optional<std::vector<int>> ProcessFamily::ancestry(int pid) {
    std::vector<int> found;
    t_hasMissed = false;
    while (pid > 0 && pid != ::getpid() && found.size() < s_deepest) {
        const auto process = Process::read(pid);
        if (!process)
            break;
        found.push_back(pid);
        pid = process->parent;
    }
    return t_hasMissed ? std::nullopt : std::optional(std::move(found));
}

std::optional<bool> ProcessFamily::hasMarkOfChild(int pid) {
    t_hasMissed = false;
    // Reading what belongs to others may take as long as these like.
    struct stat status {};
    if (::stat(placeOf(pid).c_str(), &status) != 0 || status.st_uid != ::geteuid())
        return false;
    const auto process = Process::read(pid);
    Patience patience{.left = s_glance};
    const bool isMarked = process && environmentOf(*process, MarkedEnvironment::s_begin, patience)
                                         .starts_with(MarkedEnvironment::beginOfChildren());
    return t_hasMissed ? std::nullopt : std::optional(isMarked);
}

ProcessFamily::ProcessFamily(int pid, std::string mark)
    : m_pid(pid), m_mark(std::move(mark)), m_started(Process::read(pid).value_or(Process()).started) {}

ProcessFamily ProcessFamily::ofThisProcess() {
    return {::getpid(), MarkedEnvironment::ownMark()};
}

void ProcessFamily::look() {
    EndedOrphans::instance().collect();
    std::set<Identity> noted;
    noteBelow(m_pid, 0, noted);
    // Those whose parents have died meanwhile.
    for (const auto& [pid, started] : m_noted) {
        const auto process = Process::read(pid);
        if (!process || process->started != started || process->isDead())
            continue;
        noted.insert(process->identity());
        noteBelow(pid, 0, noted);
    }
    m_noted = std::move(noted);
}

void ProcessFamily::noteBelow(int pid, int depth, std::set<Identity>& noted) const {
    const std::string tasks = placeOf(pid) + "/task";
    for (const int thread : numbersIn(tasks)) {
        std::istringstream children(textOf(tasks + "/" + std::to_string(thread) + "/children"));
        for (int child = 0; children >> child && noted.size() < s_mostNoted;) {
            const auto process = Process::read(child);
            if (!process || process->isDead())
                continue;
            if (process->session != m_pid)
                noted.insert(process->identity());
            if (depth < s_deepest)
                noteBelow(child, depth + 1, noted);
        }
    }
}

std::vector<ProcessFamily::Process> ProcessFamily::processes() {
    std::vector<Process> all;
    for (const int pid : numbersIn("/proc")) {
        if (auto process = Process::read(pid); process && !process->isDead())
            all.push_back(std::move(*process));
    }
    return all;
}

std::vector<ProcessFamily::Process> ProcessFamily::members(Patience& patience) const {
    std::vector<Process> others = processes();
    std::vector<Process> found;
    std::set<int> pids{m_pid};
    const auto take = [&](const auto& belongs) {
        std::vector<Process> rest;
        for (Process& process : others) {
            if (process.pid == m_pid || process.pid == ::getpid())
                continue;
            if (belongs(process)) {
                pids.insert(process.pid);
                found.push_back(std::move(process));
            } else {
                rest.push_back(std::move(process));
            }
        }
        others = std::move(rest);
    };
    take([&](const Process& process) {
        return process.session == m_pid || m_noted.contains(process.identity()) ||
               // Nothing that is older than the process was started by it.
               (!m_mark.empty() && process.started >= m_started && isMarked(process, m_mark, patience));
    });
    for (std::size_t before = 0; before != found.size();) {
        before = found.size();
        take([&](const Process& process) { return pids.contains(process.parent); });
    }
    return found;
}

ProcessFamily::Result ProcessFamily::endOthers() {
    EndedOrphans::instance().collect();
    Result result;
    std::set<Identity> told;
    const auto begin = Clock::now();
    t_hasMissed = false;
    // Until no process is new: one may have started another in between. On a busy machine a single look may
    // take all the time.
    bool isNew = true;
    bool isUndecided = false;
    for (int look = 0; isNew || isUndecided; ++look) {
        if (look >= s_fewestLooks && Clock::now() - begin >= (isUndecided ? s_longLimit : s_limit))
            break;
        isNew = false;
        Patience patience;
        for (const Process& process : members(patience)) {
            if (!told.insert(process.identity()).second)
                continue;
            const base::UniqueFd handle(static_cast<int>(::syscall(SYS_pidfd_open, process.pid, 0)));
            if (!handle)
                noteMissed();
            const auto now = handle ? Process::read(process.pid) : std::nullopt;
            // It has ended by itself, and the number may be another's.
            if (!now || now->started != process.started)
                continue;
            isNew = true;
            if (::syscall(SYS_pidfd_send_signal, handle.get(), SIGKILL, nullptr, 0u) == 0) {
                result.ended.push_back({process.pid, process.name});
                EndedOrphans::instance().add(process.pid);
            } else if (errno != ESRCH) {
                result.left.push_back({process.pid, process.name});
            }
        }
        isUndecided = patience.isUndecided;
    }
    result.isWhole = !t_hasMissed;
    return result;
}

}  // namespace sal
