#include "Sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "SandboxNetwork.h"
#include "UniqueFd.h"

namespace {

/// Seconds for a try; it takes a fraction of one.
constexpr int s_sandboxPatience = 10;

std::string refused(const std::string& step) {
    return step + ": " + std::strerror(errno);
}

std::string writeFile(const char* path, const std::string& text) {
    const base::UniqueFd file(::open(path, O_WRONLY | O_CLOEXEC));
    if (!file)
        return refused(std::string("open ") + path);
    const ssize_t written = ::write(file.get(), text.data(), text.size());
    return written == static_cast<ssize_t>(text.size()) ? std::string()
                                                        : refused(std::string("write ") + path);
}

std::string unshareNamespaces() {
    if (::unshare(CLONE_NEWNS | CLONE_NEWNET) == 0)
        return {};
    if (errno != EPERM)
        return refused("unshare(mount, network)");
    // Without the right to namespaces, a user namespace brings it. Everybody keeps the own user ID.
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS | CLONE_NEWNET) != 0)
        return refused("unshare(user, mount, network)");
    if (std::string refusal = writeFile("/proc/self/setgroups", "deny"); !refusal.empty())
        return refusal;
    const auto map = [](unsigned id) { return std::to_string(id) + " " + std::to_string(id) + " 1"; };
    if (std::string refusal = writeFile("/proc/self/uid_map", map(user)); !refusal.empty())
        return refusal;
    return writeFile("/proc/self/gid_map", map(group));
}

/// A directory entry that stays reachable when something is mounted over it.
std::string throughDescriptor(int fd, const std::string& name = {}) {
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    return name.empty() ? path : path + "/" + name;
}

std::string bindEntry(int oldVar, const std::string& name, unsigned char type) {
    const std::string target = "/var/" + name;
    if (type == DT_LNK) {
        char link[PATH_MAX];
        const ssize_t length = ::readlinkat(oldVar, name.c_str(), link, sizeof link - 1);
        if (length < 0)
            return refused("readlink " + target);
        link[length] = 0;
        if (::symlink(link, target.c_str()) != 0)
            return refused("symlink " + target);
        return {};
    }
    if (type == DT_DIR) {
        if (::mkdir(target.c_str(), 0755) != 0)
            return refused("mkdir " + target);
    } else if (!base::UniqueFd(::open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644))) {
        return refused("create " + target);
    }
    if (::mount(throughDescriptor(oldVar, name).c_str(), target.c_str(), nullptr, MS_BIND | MS_REC,
                nullptr) != 0)
        return refused("bind mount " + target);
    return {};
}

struct VarEntry {
    std::string name;
    unsigned char type;
};

std::vector<VarEntry> listEntries(int directory) {
    std::vector<VarEntry> entries;
    const int fd = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* pDirectory = fd < 0 ? nullptr : ::fdopendir(fd);
    if (!pDirectory)
        return entries;
    while (const dirent* pEntry = ::readdir(pDirectory)) {
        const std::string name = pEntry->d_name;
        if (name == "." || name == ".." || name == "data")
            continue;
        struct stat status {};
        if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        entries.push_back({name, S_ISLNK(status.st_mode)   ? static_cast<unsigned char>(DT_LNK)
                                 : S_ISDIR(status.st_mode) ? static_cast<unsigned char>(DT_DIR)
                                                           : static_cast<unsigned char>(DT_REG)});
    }
    ::closedir(pDirectory);
    return entries;
}

/// Only /var/data is private: a tmpfs over /var holds every other entry again.
std::string mountVar(const std::string& keptDirectory) {
    base::UniqueFd kept;
    if (!keptDirectory.empty()) {
        const std::string data = keptDirectory + "/data";
        std::error_code error;
        std::filesystem::create_directories(data, error);
        if (error)
            return "cannot make " + data + ": " + error.message();
        kept = base::UniqueFd(::open(data.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!kept)
            return refused("open " + data);
    }
    const base::UniqueFd oldVar(::open("/var", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!oldVar)
        return refused("open /var");
    const std::vector<VarEntry> entries = listEntries(oldVar.get());
    if (::mount("tmpfs", "/var", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0)
        return refused("mount tmpfs on /var");
    for (const VarEntry& entry : entries) {
        if (std::string refusal = bindEntry(oldVar.get(), entry.name, entry.type); !refusal.empty())
            return refusal;
    }
    if (::mkdir("/var/data", 0755) != 0)
        return refused("mkdir /var/data");
    if (kept &&
        ::mount(throughDescriptor(kept.get()).c_str(), "/var/data", nullptr, MS_BIND | MS_REC, nullptr) != 0)
        return refused("bind mount /var/data");
    return {};
}

/// What the process that tries a sandbox has said by its end; it is ended when it takes too long.
std::string answerOf(pid_t process, int pipe) {
    pollfd said{.fd = pipe, .events = POLLIN, .revents = 0};
    // Readable when it has spoken, and at its end.
    const bool isInTime = ::poll(&said, 1, s_sandboxPatience * 1000) > 0;
    if (!isInTime)
        ::kill(process, SIGKILL);
    char text[PIPE_BUF];
    const ssize_t length = isInTime ? ::read(pipe, text, sizeof text) : 0;
    int status = 0;
    while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    if (!isInTime)
        return "it is not made within " + std::to_string(s_sandboxPatience) + " s";
    if (WIFSIGNALED(status))
        return std::string("the process that tried it was ended: ") + ::strsignal(WTERMSIG(status));
    if (WEXITSTATUS(status) == 0)
        return {};
    return length > 0 ? std::string(text, static_cast<std::size_t>(length))
                      : "the process that tried it did not say why it cannot be had";
}

}  // namespace

std::string enterSandbox(const std::string& directory) {
    if (std::string refusal = unshareNamespaces(); !refusal.empty())
        return refusal;
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return refused("make the mounts private");
    if (std::string refusal = mountVar(directory); !refusal.empty())
        return refusal;
    if (::mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0)
        return refused("mount tmpfs on /dev/shm");
    // Where the system refuses a fresh one, /sys/class/net goes on showing the machine's adapters.
    static_cast<void>(::mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr));
    return setUpSandboxNetwork("192.0.2.10/24");
}

std::string sandboxRefusal() {
    int answer[2];
    if (::pipe2(answer, O_CLOEXEC) != 0)
        return refused("pipe");
    const pid_t child = ::fork();
    if (child == 0) {
        const std::string reason = enterSandbox({});
        const bool isSaid = ::write(answer[1], reason.data(), reason.size()) >= 0;
        ::_exit(reason.empty() && isSaid ? 0 : 1);
    }
    std::string refusal = child < 0 ? refused("fork") : std::string();
    ::close(answer[1]);
    if (child > 0)
        refusal = answerOf(child, answer[0]);
    ::close(answer[0]);
    return refusal;
}
