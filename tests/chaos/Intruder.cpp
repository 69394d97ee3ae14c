#include "Intruder.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "TestWorkplace.h"

namespace fs = std::filesystem;

/// Shared with its process.
struct Intruder::Page {
    static constexpr std::uint32_t s_mostSuccesses = 100;

    std::atomic<std::uint32_t> isUnprivileged;
    std::atomic<std::int32_t> host;
    std::atomic<std::uint64_t> attempts;
    std::atomic<std::uint32_t> successCount;
    std::array<char[160], s_mostSuccesses> successes;
};

namespace {

constexpr const char* s_queues = "/dev/shm";
constexpr const char* s_data = "/var/data";
/// Locks are held for so many rounds at most.
constexpr std::uint32_t s_longestHold = 20;

bool hasNoCapability() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    if (::syscall(SYS_capget, &header, sets.data()) != 0)
        return false;
    return std::all_of(sets.begin(), sets.end(), [](const __user_cap_data_struct& set) {
        return set.effective == 0 && set.permitted == 0 && set.inheritable == 0;
    });
}

/// It becomes another user, who could not go back.
bool giveUpAllRights(uid_t user) {
    return ::setgroups(0, nullptr) == 0 && ::setresgid(user, user, user) == 0 &&
           ::setresuid(user, user, user) == 0 && ::getuid() == user && ::setuid(0) != 0 && hasNoCapability();
}

pid_t parentOf(pid_t pid) {
    const std::string text = readFile("/proc/" + std::to_string(pid) + "/stat");
    const auto end = text.rfind(')');
    char state = 0;
    pid_t parent = 0;
    if (end != std::string::npos)
        std::istringstream(text.substr(end + 1)) >> state >> parent;
    return parent;
}

template <class Handle>
void forEachEntry(const fs::path& directory, Handle handle) {
    std::error_code ignored;
    for (fs::directory_iterator entry(directory, ignored), end; !ignored && entry != end;
         entry.increment(ignored))
        handle(entry->path());
}

/// What goes on in its process.
class Interference {
public:
    /// Both functions note in the shared page.
    Interference(std::uint32_t seed, std::function<void()> tried,
                 std::function<void(const std::string&)> succeeded)
        : m_random(seed), m_tried(std::move(tried)), m_succeeded(std::move(succeeded)) {}

    void round(pid_t host) {
        lockWhatCanBeLocked();
        takeNames();
        connect();
        if (host > 0)
            attack(host);
    }

private:
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random()) % limit; }

    void succeeded(const std::string& text) {
        if (m_said.insert(text).second)
            m_succeeded(text);
    }

    /// A directory can be opened by whoever may read it, and locked by whoever has opened it.
    void lock(const fs::path& path) {
        m_tried();
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0)
            return;
        ::flock(fd, below(2) == 0 ? LOCK_SH | LOCK_NB : LOCK_EX | LOCK_NB);
        struct flock all {};
        all.l_type = F_RDLCK;
        ::fcntl(fd, F_OFD_SETLK, &all);
        m_held.emplace_back(fd, 1 + below(s_longestHold));
    }

    void lockWhatCanBeLocked() {
        for (auto& [fd, rounds] : m_held)
            if (--rounds == 0)
                ::close(fd);
        std::erase_if(m_held, [](const auto& held) { return held.second == 0; });
        if (below(3) == 0)
            lock(s_data);
        forEachEntry(s_data, [this](const fs::path& path) { lock(path); });
        forEachEntry(s_queues, [this](const fs::path& path) {
            lock(path);
            readInside(path);
        });
    }

    void readInside(const fs::path& directory) {
        forEachEntry(directory, [this, &directory](const fs::path& path) {
            if (isOwn(directory))
                return;
            m_tried();
            if (const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); fd >= 0) {
                succeeded("could open " + path.string());
                ::close(fd);
            }
        });
    }

    static bool isOwn(const fs::path& path) {
        struct stat status {};
        return ::lstat(path.c_str(), &status) == 0 && status.st_uid == ::getuid();
    }

    /// Names that a host of that user may want, as directories, files or links.
    void takeNames() {
        m_tried();
        std::string path = std::string(s_queues) + "/mfd-0";
        if (below(2) == 0) {
            path += "-";
            for (int i = 0; i < 6; ++i)
                path += static_cast<char>('A' + below(26));
        }
        if (below(4) == 0 && isOwn(path))
            fs::remove(path);
        switch (below(3)) {
            case 0:
                ::mkdir(path.c_str(), below(2) == 0 ? 0777 : 0700);
                break;
            case 1:
                static_cast<void>(::symlink("/tmp", path.c_str()));
                break;
            default:
                if (const int fd = ::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
                    fd >= 0)
                    ::close(fd);
        }
    }

    /// To whatever listens: sockets of files and of names, and ports.
    void connect() {
        std::istringstream sockets(readFile("/proc/net/unix"));
        for (std::string line; std::getline(sockets, line);) {
            std::istringstream words(line);
            const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
            sockaddr_un address{};
            if (fields.size() < 8 || fields[7].size() >= sizeof address.sun_path)
                continue;
            m_tried();
            address.sun_family = AF_UNIX;
            std::copy(fields[7].begin(), fields[7].end(), address.sun_path);
            if (fields[7].front() == '@')
                address.sun_path[0] = '\0';
            tryConnect(AF_UNIX, reinterpret_cast<const sockaddr*>(&address),
                       static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + fields[7].size()));
        }
        std::istringstream ports(readFile("/proc/net/tcp"));
        for (std::string line; std::getline(ports, line);) {
            const auto colon = line.find(':', line.find(':') + 1);
            if (line.find(" 0A ") == std::string::npos || colon == std::string::npos)
                continue;
            m_tried();
            sockaddr_in address{};
            address.sin_family = AF_INET;
            address.sin_port =
                htons(static_cast<std::uint16_t>(std::stoul(line.substr(colon + 1, 4), nullptr, 16)));
            address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            tryConnect(AF_INET, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        }
    }

    /// Whoever listens may let anybody in; that it goes on is judged by others.
    static void tryConnect(int family, const sockaddr* pAddress, socklen_t size) {
        const int fd = ::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (::connect(fd, pAddress, size) == 0)
            static_cast<void>(::send(fd, "quit\n", 5, MSG_NOSIGNAL));
        ::close(fd);
    }

    void attack(pid_t host) {
        attackProcess(host);
        forEachEntry("/proc", [this, host](const fs::path& path) {
            const pid_t pid = std::atoi(path.filename().c_str());
            if (pid > 0 && parentOf(pid) == host)
                attackProcess(pid);
        });
    }

    void attackProcess(pid_t pid) {
        for (const int signal : {SIGSTOP, SIGTERM, SIGKILL, SIGHUP}) {
            m_tried();
            if (::kill(pid, signal) == 0)
                succeeded("could send signal " + std::to_string(signal) + " to process " +
                          std::to_string(pid));
        }
        const std::string process = "/proc/" + std::to_string(pid);
        for (const char* file : {"/environ", "/mem", "/maps", "/fd/0"}) {
            m_tried();
            const int fd = ::open((process + file).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
            char byte = 0;
            if (fd >= 0 && ::read(fd, &byte, 1) > 0)
                succeeded("could read " + process + file);
            if (fd >= 0)
                ::close(fd);
        }
    }

    std::mt19937 m_random;
    const std::function<void()> m_tried;
    const std::function<void(const std::string&)> m_succeeded;
    std::vector<std::pair<int, std::uint32_t>> m_held;  ///< locks, and for how many more rounds
    std::set<std::string> m_said;
};

}  // namespace

Intruder::Intruder(std::uint32_t seed)
    : m_pPage(static_cast<Page*>(
          ::mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    if (m_pPage == MAP_FAILED)
        throw std::runtime_error("no memory for another user");
    int ready[2];
    if (::pipe2(ready, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe to another user");
    m_pid = ::fork();
    if (m_pid == 0) {
        ::close(ready[0]);
        m_pPage->isUnprivileged = giveUpAllRights(s_user) ? 1 : 0;
        // A change of the user takes this back.
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::close(ready[1]);
        if (m_pPage->isUnprivileged == 0)
            ::_exit(1);
        Interference interference(
            seed, [this] { ++m_pPage->attempts; },
            [this](const std::string& text) {
                const std::uint32_t index = m_pPage->successCount;
                if (index >= Page::s_mostSuccesses)
                    return;
                text.copy(m_pPage->successes[index], sizeof m_pPage->successes[index] - 1);
                m_pPage->successCount = index + 1;
            });
        for (;;) {
            interference.round(m_pPage->host);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    ::close(ready[1]);
    char none = 0;
    while (::read(ready[0], &none, 1) < 0 && errno == EINTR) {
    }
    ::close(ready[0]);
}

Intruder::~Intruder() {
    end();
    ::munmap(m_pPage, sizeof(Page));
}

bool Intruder::isUnprivileged() const {
    return m_pPage->isUnprivileged == 1;
}

void Intruder::setHost(pid_t host) {
    m_pPage->host = host;
}

std::uint64_t Intruder::attempts() const {
    return m_pPage->attempts;
}

std::vector<std::string> Intruder::successes() const {
    std::vector<std::string> all;
    for (std::uint32_t i = 0; i < m_pPage->successCount; ++i)
        all.emplace_back(m_pPage->successes[i]);
    return all;
}

void Intruder::end() {
    if (m_pid <= 0)
        return;
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
    m_pid = -1;
    forEachEntry(s_queues, [](const fs::path& path) {
        struct stat status {};
        std::error_code ignored;
        if (::lstat(path.c_str(), &status) == 0 && status.st_uid == s_user)
            fs::remove(path, ignored);
    });
}
