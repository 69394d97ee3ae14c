#include "ControlSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "RegularFile.h"

namespace {

/// More hosts of one user are an error of whatever starts them.
constexpr int s_names = 64;
/// Each further attempt needs another host that begins or ends at that very moment.
constexpr int s_attempts = 100;
/// Connections that are not taken yet. Beyond these, clients that do not wait for their connection have none.
constexpr int s_waiting = 1024;

std::string nameNumber(const std::string& name, int number) {
    if (number == 1)
        return name;
    const std::filesystem::path path(name);
    return path.stem().string() + "-" + std::to_string(number) + path.extension().string();
}

struct flock wholeFile() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

std::string identityText(dev_t device, ino_t inode) {
    return std::to_string(device) + ":" + std::to_string(inode) + "\n";
}

/// Fits unless the text is longer than such an address may be.
bool fill(sockaddr_un& address, const std::string& path) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

int callWith(int (*call)(int, const sockaddr*, socklen_t), int socket, const sockaddr_un& address) {
    return call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

}  // namespace

ControlSocket::~ControlSocket() {
    release();
}

std::string ControlSocket::defaultPath() {
    const char* pDirectory = std::getenv("XDG_RUNTIME_DIR");
    return std::string(pDirectory && *pDirectory == '/' ? pDirectory : "/run") + "/mfhost.sock";
}

std::string ControlSocket::open(const std::string& path) {
    const std::filesystem::path asked(path);
    m_directory = asked.parent_path().string();
    const std::string name = asked.filename().string();
    if (name.empty() || name == "." || name == "..")
        return path + " names no file";
    m_place = base::UniqueFd(::open(m_directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!m_place)
        return "the directory " + m_directory + " cannot be opened: " + std::strerror(errno);
    std::string taken;
    for (int number = 1; number <= s_names; ++number) {
        EAttempt attempt = EAttempt::Again;
        for (int i = 0; i < s_attempts && attempt == EAttempt::Again; ++i) {
            attempt = openAs(nameNumber(name, number));
            if (attempt != EAttempt::Done)
                release();
        }
        if (attempt == EAttempt::Done) {
            if (number > 1)
                m_warning = taken + "; this host's is " + m_path;
            return {};
        }
        if (attempt == EAttempt::Failed)
            return m_reason;
        if (attempt == EAttempt::Again)
            m_reason = m_path + ".lock is made and removed all the time";
        if (number == 1)
            taken = m_reason;
    }
    return taken + ", and so it is with the next " + std::to_string(s_names - 1) + " names";
}

ControlSocket::EAttempt ControlSocket::openAs(const std::string& name) {
    m_name = name;
    m_path = (std::filesystem::path(m_directory) / name).string();
    sockaddr_un address{};
    if (!fill(address, m_path))
        return failed(m_path + " has " + std::to_string(m_path.size()) +
                      " characters; the path of a socket has " + std::to_string(sizeof address.sun_path - 1) +
                      " at most");
    for (const auto step : {&ControlSocket::lock, &ControlSocket::clearName, &ControlSocket::bind}) {
        if (const EAttempt attempt = (this->*step)(); attempt != EAttempt::Done)
            return attempt;
    }
    return EAttempt::Done;
}

ControlSocket::EAttempt ControlSocket::lock() {
    if (const EAttempt attempt = openLockFile(); attempt != EAttempt::Done)
        return attempt;
    // A child that a driver in this process forks does not hold it, other than a lock of the open file.
    struct flock lock = wholeFile();
    if (::fcntl(m_lockFile.get(), F_SETLK, &lock) != 0) {
        if (errno != EAGAIN && errno != EACCES)
            return failed("cannot lock " + m_path + ".lock: " + std::strerror(errno));
        if (::fcntl(m_lockFile.get(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
            return EAttempt::Again;
        return taken(lock.l_pid > 0 ? "another host, process " + std::to_string(lock.l_pid)
                                    : std::string("another host"));
    }
    m_isLocked = true;
    // The former holder may have removed it in between.
    struct stat named {};
    struct stat opened {};
    const bool isStillThere =
        ::fstatat(m_place.get(), (m_name + ".lock").c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
        ::fstat(m_lockFile.get(), &opened) == 0 && named.st_dev == opened.st_dev &&
        named.st_ino == opened.st_ino;
    if (isStillThere)
        return EAttempt::Done;
    m_isLocked = false;
    return EAttempt::Again;
}

/// Open to its owner alone, since whoever may open it may lock it.
ControlSocket::EAttempt ControlSocket::openLockFile() {
    const std::string name = m_name + ".lock";
    const auto open = [&](int flags) {
        m_lockFile = base::UniqueFd(::openat(m_place.get(), name.c_str(),
                                             O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | flags, 0600));
        return m_lockFile ? 0 : errno;
    };
    int error = open(O_CREAT | O_EXCL);
    if (error == EEXIST)
        error = open(0);
    if (error == ENOENT)
        return EAttempt::Again;
    struct stat status {};
    if (::fstatat(m_place.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_uid != ::geteuid())
        return taken("user " + std::to_string(status.st_uid));
    if (error != 0)
        return failed("cannot make " + m_path + ".lock: " + std::strerror(error));
    if (!S_ISREG(status.st_mode))
        return failed(m_path + ".lock is no regular file; remove it");
    return EAttempt::Done;
}

ControlSocket::EAttempt ControlSocket::clearName() {
    struct stat status {};
    if (::fstatat(m_place.get(), m_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? EAttempt::Done
                               : failed("cannot look at " + m_path + ": " + std::strerror(errno));
    if (!S_ISSOCK(status.st_mode))
        return failed(m_path + " is there and is no socket; remove it, or name another path with --control");
    if (!isOfDeadHost(status) && isServed())
        return taken("a program that listens there");
    if (::unlinkat(m_place.get(), m_name.c_str(), 0) != 0 && errno != ENOENT)
        return taken(std::string("a dead program's socket that cannot be removed (") + std::strerror(errno) +
                     ")");
    return EAttempt::Done;
}

/// Whether the lock's former holder has made it. A forked child of a driver in that process may still hold it
/// open, so that connecting to it tells nothing.
bool ControlSocket::isOfDeadHost(const struct stat& socket) const {
    std::array<char, 64> text{};
    const ssize_t size = ::pread(m_lockFile.get(), text.data(), text.size(), 0);
    return size > 0 && std::string(text.data(), static_cast<std::size_t>(size)) ==
                           identityText(socket.st_dev, socket.st_ino);
}

bool ControlSocket::isServed() const {
    const base::UniqueFd client(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    if (!client || !fill(address, placeByDescriptor()))
        return true;
    return callWith(&::connect, client.get(), address) == 0 || (errno != ECONNREFUSED && errno != ENOENT);
}

std::string ControlSocket::placeByDescriptor() const {
    return "/proc/self/fd/" + std::to_string(m_place.get()) + "/" + m_name;
}

ControlSocket::EAttempt ControlSocket::bind() {
    m_listener = base::UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    static_cast<void>(fill(address, m_path));
    if (!m_listener || callWith(&::bind, m_listener.get(), address) != 0)
        return failed("cannot make " + m_path + ": " + std::strerror(errno));
    struct stat status {};
    if (::fstatat(m_place.get(), m_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return failed("cannot make " + m_path + ": " + std::strerror(errno));
    m_device = status.st_dev;
    m_inode = status.st_ino;
    const std::string identity = identityText(m_device, m_inode);
    if (::ftruncate(m_lockFile.get(), 0) != 0 || !base::writeAll(m_lockFile.get(), identity))
        return failed("cannot write " + m_path + ".lock: " + std::strerror(errno));
    // Until it listens nobody can connect, whatever the rights are.
    if (::fchmodat(m_place.get(), m_name.c_str(), 0666, 0) != 0 || ::listen(m_listener.get(), s_waiting) != 0)
        return failed("cannot open " + m_path + ": " + std::strerror(errno));
    return EAttempt::Done;
}

void ControlSocket::release() {
    m_listener.reset();
    struct stat status {};
    if (m_inode != 0 && ::fstatat(m_place.get(), m_name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_dev == m_device && status.st_ino == m_inode)
        ::unlinkat(m_place.get(), m_name.c_str(), 0);
    m_inode = 0;
    // Still locked: otherwise another host could take the lock of a file that is about to lose its name.
    if (m_isLocked)
        ::unlinkat(m_place.get(), (m_name + ".lock").c_str(), 0);
    m_isLocked = false;
    m_lockFile.reset();
}

ControlSocket::EAttempt ControlSocket::failed(const std::string& reason) {
    m_reason = reason;
    return EAttempt::Failed;
}

ControlSocket::EAttempt ControlSocket::taken(const std::string& by) {
    m_reason = m_path + " is taken by " + by;
    return EAttempt::Taken;
}
