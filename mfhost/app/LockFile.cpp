#include "LockFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "RegularFile.h"

namespace {

constexpr const char* s_file = "lock";
/// Each further attempt needs another process that makes or removes the file at that very moment.
constexpr int s_attempts = 100;

struct flock wholeFile(short type) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

std::string textOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What the file says of the process that holds it: its number, when it was started, and since which start of
/// the machine that counts. No later process has the same. Empty when the process has ended.
std::string recordOf(pid_t pid) {
    const std::string stat = textOf("/proc/" + std::to_string(pid) + "/stat");
    // The name in parentheses may hold anything, parentheses too.
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    char state = 0;
    fields >> state;
    std::string field;
    constexpr int startTime = 19;  // the fields after the state
    for (int i = 0; i < startTime; ++i)
        fields >> field;
    if (!fields || state == 'Z' || state == 'X')
        return {};
    return std::to_string(pid) + " " + field + " " + textOf("/proc/sys/kernel/random/boot_id");
}

/// Whether the name in the directory leads to the open file.
bool leadsTo(int directory, const char* name, int file) {
    struct stat named {};
    struct stat open {};
    return ::fstatat(directory, name, &named, AT_SYMLINK_NOFOLLOW) == 0 && ::fstat(file, &open) == 0 &&
           named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

}  // namespace

LockFile::LockFile(const std::string& directory) : m_path(directory + "/" + s_place) {}

LockFile::~LockFile() {
    if (m_isLocked) {
        // Still locked: otherwise another host could take the lock of a file that is about to lose its name,
        // and not notice.
        removeFile();
        struct flock lock = wholeFile(F_UNLCK);
        ::fcntl(m_file.get(), F_SETLK, &lock);
    }
}

std::string LockFile::acquire(int directory) {
    m_directory = directory;
    for (int i = 0; i < s_attempts; ++i) {
        const EAttempt attempt = tryOnce();
        if (attempt == EAttempt::Done) {
            m_isLocked = true;
            writeRecord();
            return {};
        }
        closeBoth();
        if (attempt == EAttempt::Failed)
            return m_reason;
    }
    return m_path + " is made and removed all the time; it cannot be locked";
}

LockFile::EAttempt LockFile::tryOnce() {
    m_isForeign = false;
    for (const auto step :
         {&LockFile::openPlace, &LockFile::openFile, &LockFile::lockFile, &LockFile::askRecord}) {
        if (const EAttempt attempt = (this->*step)(); attempt != EAttempt::Done)
            return attempt;
    }
    // The former holder may have removed it in between.
    if (!isStillThere())
        return EAttempt::Again;
    return m_isForeign ? replaceForeign() : EAttempt::Done;
}

LockFile::EAttempt LockFile::openPlace() {
    const bool isNew = ::mkdirat(m_directory, s_place, 0700) == 0;
    if (!isNew && errno != EEXIST)
        return failed("cannot make " + m_path + ": " + std::strerror(errno));
    m_place = base::UniqueFd(::openat(m_directory, s_place, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const int error = m_place ? 0 : errno;
    if (error == ENOENT)
        return EAttempt::Again;
    if (error == ENOTDIR)
        return failed(m_path + " is not a directory; remove it");
    struct stat status {};
    if (!m_place && ::fstatat(m_directory, s_place, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_uid != ::geteuid())
        return failed(m_path + " belongs to user " + std::to_string(status.st_uid) +
                      ", whose host runs here or was killed here; remove it if none runs");
    if (!m_place || ::fstat(m_place.get(), &status) != 0)
        return failed("cannot open " + m_path + ": " + std::strerror(error != 0 ? error : errno));
    // A narrow umask must not lock its own maker out.
    if (isNew && ::fchmod(m_place.get(), 0700) != 0)
        return failed("cannot make " + m_path + ": " + std::strerror(errno));
    m_owner = status.st_uid;
    m_isForeign = status.st_uid != ::geteuid() || (!isNew && (status.st_mode & 077) != 0);
    return EAttempt::Done;
}

LockFile::EAttempt LockFile::openFile() {
    m_file = base::UniqueFd(
        ::openat(m_place.get(), s_file, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (m_file && ::fchmod(m_file.get(), 0600) != 0)
        return failed("cannot make " + m_path + "/" + s_file + ": " + std::strerror(errno));
    if (!m_file && errno == EEXIST)
        m_file =
            base::UniqueFd(::openat(m_place.get(), s_file, O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    // The former holder removes the file, then the directory.
    if (!m_file && errno == ENOENT)
        return EAttempt::Again;
    struct stat status {};
    if (!m_file || ::fstat(m_file.get(), &status) != 0)
        return failed("cannot open " + m_path + "/" + s_file + ": " + std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        return failed(m_path + "/" + s_file + " is not a regular file; remove it");
    m_isForeign = m_isForeign || status.st_uid != ::geteuid() || (status.st_mode & 077) != 0;
    return EAttempt::Done;
}

LockFile::EAttempt LockFile::lockFile() {
    struct flock lock = wholeFile(F_WRLCK);
    if (::fcntl(m_file.get(), F_SETLK, &lock) == 0)
        return EAttempt::Done;
    if (errno != EAGAIN && errno != EACCES)
        return failed("cannot lock " + m_path + "/" + s_file + ": " + std::strerror(errno));
    lock = wholeFile(F_WRLCK);
    if (::fcntl(m_file.get(), F_GETLK, &lock) != 0)
        return failed("cannot lock " + m_path + "/" + s_file + ": " + std::strerror(errno));
    if (lock.l_type == F_UNLCK)
        return EAttempt::Again;
    return takenBy(lock.l_pid);
}

/// The lock is gone without its process when a driver there has opened the file and closed it.
LockFile::EAttempt LockFile::askRecord() {
    // What others could write says nothing.
    if (m_isForeign)
        return EAttempt::Done;
    std::array<char, 256> bytes{};
    const ssize_t count = ::pread(m_file.get(), bytes.data(), bytes.size(), 0);
    const std::string record(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    const pid_t holder = std::atoi(record.c_str());
    if (holder <= 0 || holder == ::getpid() || recordOf(holder) != record)
        return EAttempt::Done;
    return takenBy(holder);
}

/// Where there is no room for it the lock alone counts.
void LockFile::writeRecord() const {
    const std::string record = recordOf(::getpid());
    if (::ftruncate(m_file.get(), 0) == 0)
        static_cast<void>(base::writeAll(m_file.get(), record));
}

LockFile::EAttempt LockFile::takenBy(pid_t pid) {
    m_isTaken = true;
    const std::string directory = m_path.substr(0, m_path.rfind('/'));
    // Of a process that is out of this one's sight the kernel gives no number.
    return failed("another host runs with " + directory + " (" +
                  (pid > 0 ? "process " + std::to_string(pid)
                           : std::string("a process that cannot be seen from here")) +
                  ")");
}

/// No process holds it, but another user's could at any time: a file that only this user can open takes its
/// place.
LockFile::EAttempt LockFile::replaceForeign() {
    if (::unlinkat(m_place.get(), s_file, 0) == 0 && ::unlinkat(m_directory, s_place, AT_REMOVEDIR) == 0)
        return EAttempt::Again;
    return failed(m_path + " is open to others (it belongs to user " + std::to_string(m_owner) +
                  ") and cannot be removed: " + std::strerror(errno));
}

bool LockFile::isStillThere() const {
    return leadsTo(m_place.get(), s_file, m_file.get()) && leadsTo(m_directory, s_place, m_place.get());
}

void LockFile::removeFile() const {
    if (!isStillThere())
        return;
    ::unlinkat(m_place.get(), s_file, 0);
    ::unlinkat(m_directory, s_place, AT_REMOVEDIR);
}

void LockFile::closeBoth() {
    m_file.reset();
    m_place.reset();
}

LockFile::EAttempt LockFile::failed(const std::string& reason) {
    m_reason = reason;
    return EAttempt::Failed;
}
