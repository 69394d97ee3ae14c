#include "QueueFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "QueueMaker.h"

#include "LogLine.h"
#include "sal/LogOutput.h"

namespace sal {

namespace {

// The locks are on bytes that no file ever has.
constexpr off_t s_attachedByte = off_t{1} << 40;
constexpr off_t s_creatorByte = s_attachedByte + 1;
constexpr off_t s_receiverByte = s_attachedByte + 2;
constexpr off_t s_ticketBytes = off_t{1} << 41;

constexpr std::chrono::milliseconds s_takeOverPatience{50};
/// How long a process that opened a queue waits for the end of a host that lets go of its directory last.
constexpr std::chrono::milliseconds s_hostsEnd{500};

struct flock lockOf(short type, off_t start, off_t length) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = start;
    lock.l_len = length;
    return lock;
}

bool setLock(int descriptor, short type, off_t byte) {
    struct flock lock = lockOf(type, byte, 1);
    int result = 0;
    do {
        result = ::fcntl(descriptor, F_OFD_SETLK, &lock);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

void unlockAll(int descriptor) {
    struct flock lock = lockOf(F_UNLCK, 0, 0);
    ::fcntl(descriptor, F_OFD_SETLK, &lock);
}

/// The first lock of another open file in the range that one of this type would meet; false when there is
/// none.
bool findLock(int descriptor, short type, off_t start, off_t length, struct flock& found) {
    found = lockOf(type, start, length);
    return ::fcntl(descriptor, F_OFD_GETLK, &found) == 0 && found.l_type != F_UNLCK;
}

bool isLocked(int descriptor, off_t byte) {
    struct flock found {};
    return findLock(descriptor, F_WRLCK, byte, 1, found);
}

/// A driver process that has waited for its creator's end shares the creator's lock from then on.
bool isCreatorLocked(int descriptor) {
    struct flock found {};
    return findLock(descriptor, F_RDLCK, s_creatorByte, 1, found);
}

unsigned int countLocks(int descriptor, off_t start, off_t end) {
    struct flock found {};
    if (start >= end || !findLock(descriptor, F_WRLCK, start, end - start, found))
        return 0;
    return 1 + countLocks(descriptor, start, found.l_start) +
           countLocks(descriptor, found.l_start + found.l_len, end);
}

struct PidNamespace {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    static PidNamespace own() {
        struct stat info {};
        if (::stat("/proc/self/ns/pid", &info) != 0)
            return {};
        return {info.st_dev, info.st_ino};
    }
};

std::string reason(int number) {
    return std::strerror(number);
}

bool isOurs(const struct stat& info) {
    return S_ISREG(info.st_mode) && info.st_uid == ::geteuid() && (info.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

/// Whether the name still leads to the open file.
bool namesFile(int directory, const std::string& name, int file) {
    struct stat named {};
    struct stat open {};
    return ::fstatat(directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           ::fstat(file, &open) == 0 && named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

base::UniqueFd openNamed(int directory, const std::string& name) {
    return base::UniqueFd(::openat(directory, name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
}

bool isQueueOfOurs(const base::UniqueFd& file) {
    struct stat info {};
    return file && ::fstat(file.get(), &info) == 0 && isOurs(info);
}

std::vector<std::string> filesOf(const QueueDirectory& directory) {
    std::vector<std::string> names;
    std::error_code failed;
    for (std::filesystem::directory_iterator entry(directory.path(), failed), end; !failed && entry != end;
         entry.increment(failed))
        names.push_back(entry->path().filename().string());
    return names;
}

base::UniqueFd makeUnnamed(const QueueDirectory& directory, std::string& error) {
    base::UniqueFd file(
        ::openat(directory.descriptor(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file)
        error = "no file can be made in " + directory.path() + ": " + reason(errno) +
                (errno == EOPNOTSUPP ? "; use a directory on a tmpfs" : "");
    return file;
}

bool readHeader(int file, QueueHeader& header) {
    std::array<std::byte, sizeof(QueueHeader)> bytes;
    if (::pread(file, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return false;
    // The atomic members of the copy are never looked at concurrently.
    std::memcpy(static_cast<void*>(&header), bytes.data(), bytes.size());
    return true;
}

/// For the end of a line: what to change when a file has become too large.
std::string limitText(int number, std::size_t wanted) {
    struct rlimit limit {};
    if (number != EFBIG || ::getrlimit(RLIMIT_FSIZE, &limit) != 0)
        return {};
    return "; files of this process are limited to " + std::to_string(limit.rlim_cur) +
           " bytes (RLIMIT_FSIZE, ulimit -f), and this one needs " + std::to_string(wanted);
}

bool allocateRange(int file, std::size_t offset, std::size_t size) {
    int result = 0;
    do {
        result = ::fallocate(file, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset), static_cast<off_t>(size));
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

/// A child that was only forked may have kept the lock of a creator that has died.
bool creatorLivesIn(int file) {
    if (!isCreatorLocked(file))
        return false;
    QueueHeader header;
    if (!readHeader(file, header) || header.magic != QueueHeader::s_magic)
        return true;
    const PidNamespace pids = PidNamespace::own();
    const bool isVisible = header.pidNamespaceDevice == pids.device && header.pidNamespaceInode == pids.inode;
    const auto creator = static_cast<pid_t>(header.creatorPid);
    return !isVisible || creator <= 0 || ::kill(creator, 0) == 0 || errno != ESRCH;
}

std::string holderText(int file) {
    QueueHeader header;
    if (!readHeader(file, header) || header.magic != QueueHeader::s_magic)
        return {};
    const auto receiver = header.receiverPid.load(std::memory_order_relaxed);
    return " (made by process " + std::to_string(header.creatorPid) +
           (receiver != 0 ? ", read by process " + std::to_string(receiver) : std::string()) + ")";
}

bool hasOpen(const std::string& process, int file) {
    struct stat wanted {};
    if (::fstat(file, &wanted) != 0)
        return false;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(process + "/fd", error), end; !error && entry != end;
         entry.increment(error)) {
        struct stat open {};
        if (::stat(entry->path().c_str(), &open) == 0 && open.st_dev == wanted.st_dev &&
            open.st_ino == wanted.st_ino)
            return true;
    }
    return false;
}

bool isStopped(const std::string& process) {
    std::ifstream stream(process + "/stat");
    std::string text;
    std::getline(stream, text);
    // The state follows the name, which may hold anything.
    const auto name = text.rfind(") ");
    return name != std::string::npos && text.compare(name, 3, ") T") == 0;
}

/// A reader that was stopped when its creator died would keep the name for ever, since it cannot see that.
/// Shared memory only tells which process it may be.
std::string continueReader(int file) {
    QueueHeader header;
    if (creatorLivesIn(file) || !readHeader(file, header) || header.magic != QueueHeader::s_magic)
        return {};
    const auto receiver = static_cast<pid_t>(header.receiverPid.load(std::memory_order_relaxed));
    const std::string process = "/proc/" + std::to_string(receiver);
    if (receiver <= 0 || !isStopped(process) || !hasOpen(process, file) || ::kill(receiver, SIGCONT) != 0)
        return {};
    return "; its reader was stopped and is continued, so that it sees that its host is gone";
}

}  // namespace

std::unique_ptr<QueueFile> QueueFile::make(const std::string& queue, const QueueGeometry& geometry,
                                           std::string& error) {
    auto name = QueueDirectory::fileName(queue, error);
    if (!name)
        return nullptr;
    auto directory = QueueDirectory::openOrMake(error);
    if (!directory)
        return nullptr;
    base::UniqueFd file = makeUnnamed(*directory, error);
    if (!file)
        return nullptr;
    const std::size_t first = geometry.chunksOffset + geometry.chunkSize;
    if (::fchmod(file.get(), S_IRUSR | S_IWUSR) != 0 ||
        ::ftruncate(file.get(), static_cast<off_t>(geometry.fileSize)) != 0 ||
        !allocateRange(file.get(), 0, first)) {
        const int number = errno;
        error = "no memory for it in " + directory->path() + ": " + reason(number) +
                limitText(number, geometry.fileSize);
        return nullptr;
    }
    const PidNamespace pids = PidNamespace::own();
    QueueHeader header;
    header.capacity = geometry.capacity;
    header.messageSize = geometry.messageSize;
    header.creatorPid = static_cast<std::uint32_t>(::getpid());
    header.pidNamespaceDevice = pids.device;
    header.pidNamespaceInode = pids.inode;
    const QueueMaker::Mark mark = QueueMaker::next();
    header.maker = mark.maker;
    header.number = mark.number;
    // Tickets begin at a number of no significance, so that a damaged word hardly ever reads as one in use.
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    header.nextTicket.store(static_cast<std::uint32_t>(now) & 0x1fffffff, std::memory_order_relaxed);
    const std::uint8_t allocated = 1;
    if (::pwrite(file.get(), static_cast<const void*>(&header), sizeof(header), 0) !=
            static_cast<ssize_t>(sizeof(header)) ||
        ::pwrite(file.get(), &allocated, 1, static_cast<off_t>(geometry.allocatedOffset)) != 1) {
        error = "it cannot be written: " + reason(errno);
        return nullptr;
    }
    if (!setLock(file.get(), F_RDLCK, s_attachedByte) || !setLock(file.get(), F_WRLCK, s_creatorByte)) {
        error = "it cannot be locked: " + reason(errno);
        return nullptr;
    }
    return std::unique_ptr<QueueFile>(
        new QueueFile(std::move(*directory), std::move(*name), std::move(file)));
}

QueueFile::EResult QueueFile::removeStale(const std::string& queue, std::string& error) {
    const auto name = QueueDirectory::fileName(queue, error);
    if (!name)
        return EResult::Failed;
    const auto directory = QueueDirectory::openOrMake(error);
    if (!directory)
        return EResult::Failed;
    return forAll(*directory, [&](const QueueDirectory& each) { return removeStaleIn(each, *name, error); });
}

QueueFile::EResult QueueFile::removeStaleIn(const QueueDirectory& directory, const std::string& name,
                                            std::string& error) {
    const auto end = std::chrono::steady_clock::now() + s_takeOverPatience;
    for (;;) {
        base::UniqueFd file = openNamed(directory.descriptor(), name);
        if (!file && errno == ENOENT)
            return EResult::Done;
        if (!isQueueOfOurs(file)) {
            error = directory.path() + "/" + name + " is no queue of ours; remove it";
            return EResult::Failed;
        }
        if (setLock(file.get(), F_WRLCK, s_attachedByte) &&
            namesFile(directory.descriptor(), name, file.get())) {
            if (::unlinkat(directory.descriptor(), name.c_str(), 0) == 0)
                return EResult::Done;
            error = directory.path() + "/" + name + " cannot be removed: " + reason(errno);
            return EResult::Failed;
        }
        if (std::chrono::steady_clock::now() >= end) {
            error = "the name is still in use by a live process" + holderText(file.get()) +
                    continueReader(file.get());
            return EResult::Busy;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

QueueFile::EResult QueueFile::retire(const std::string& queue, std::string& error) {
    const auto name = QueueDirectory::fileName(queue, error);
    if (!name)
        return EResult::Failed;
    const auto directory = QueueDirectory::open(error);
    if (!directory)
        return EResult::Failed;
    return forAll(*directory, [&](const QueueDirectory& each) { return retireIn(each, *name, error); });
}

QueueFile::EResult QueueFile::retireIn(const QueueDirectory& directory, const std::string& name,
                                       std::string& error) {
    const base::UniqueFd file = openNamed(directory.descriptor(), name);
    if (!file && errno == ENOENT)
        return EResult::Done;
    struct stat info {};
    if (!isQueueOfOurs(file) || ::fstat(file.get(), &info) != 0) {
        error = directory.path() + "/" + name + " is no queue of ours; remove it";
        return EResult::Failed;
    }
    if (creatorLivesIn(file.get())) {
        error = "another host has it" + holderText(file.get());
        return EResult::Busy;
    }
    // A process that is still attached looks at the mark several times in a second.
    const std::uint32_t broken = 1;
    if (info.st_size >= static_cast<off_t>(sizeof(QueueHeader)))
        static_cast<void>(!::pwrite(file.get(), &broken, sizeof(broken), offsetof(QueueHeader, broken)));
    if (namesFile(directory.descriptor(), name, file.get()) &&
        ::unlinkat(directory.descriptor(), name.c_str(), 0) != 0) {
        error = directory.path() + "/" + name + " cannot be removed: " + reason(errno);
        return EResult::Failed;
    }
    return EResult::Done;
}

QueueFile::EResult QueueFile::forAll(const QueueDirectory& directory,
                                     const std::function<EResult(const QueueDirectory&)>& call) {
    const EResult result = call(directory);
    if (result != EResult::Done || !directory.isHostsOwn())
        return result;
    for (QueueDirectory& left : QueueDirectory::left()) {
        // What else is there is in no queue's way.
        if (call(left) == EResult::Busy)
            return EResult::Busy;
        left.removeIfLeft();
    }
    return result;
}

bool QueueFile::areFree(const std::vector<std::string>& queues) {
    std::string error;
    const auto directory = QueueDirectory::openOrMake(error);
    return directory &&
           forAll(*directory, [&](const QueueDirectory& each) {
               const bool isFree = std::all_of(queues.begin(), queues.end(), [&](const std::string& queue) {
                   const auto name = QueueDirectory::fileName(queue, error);
                   return name &&
                          ::faccessat(each.descriptor(), name->c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0 &&
                          errno == ENOENT;
               });
               return isFree ? EResult::Done : EResult::Busy;
           }) == EResult::Done;
}

bool QueueFile::tryDirectory(std::string& error) {
    auto directory = QueueDirectory::openOrMake(error);
    if (!directory)
        return false;
    base::UniqueFd handle = makeUnnamed(*directory, error);
    if (!handle)
        return false;
    // No queue is called so: of a queue's name only whole %XX come out.
    const std::string name = "%try-" + std::to_string(::getpid());
    ::unlinkat(directory->descriptor(), name.c_str(), 0);
    QueueFile file(std::move(*directory), name, std::move(handle));
    return file.publish(error) == EResult::Done;
}

void QueueFile::removeFree(const QueueDirectory& directory) {
    for (const std::string& name : filesOf(directory)) {
        const base::UniqueFd file = openNamed(directory.descriptor(), name);
        if (!isQueueOfOurs(file))
            continue;
        if (setLock(file.get(), F_WRLCK, s_attachedByte))
            ::unlinkat(directory.descriptor(), name.c_str(), 0);
        else if (const std::string text = continueReader(file.get()); !text.empty())
            logLine("QUEUE", LogOutput::eWarning, directory.path() + "/" + name + ": still in use" + text);
    }
}

void QueueFile::removeAll(const QueueDirectory& directory) {
    for (const std::string& name : filesOf(directory)) {
        if (isQueueOfOurs(openNamed(directory.descriptor(), name)))
            ::unlinkat(directory.descriptor(), name.c_str(), 0);
    }
}

QueueFile::EResult QueueFile::publish(std::string& error) {
    int result = ::linkat(m_file.get(), "", m_directory.descriptor(), m_name.c_str(), AT_EMPTY_PATH);
    if (result != 0 && errno != EEXIST) {
        // Before Linux 6.10 the direct way takes a right that an ordinary user lacks.
        const std::string path = "/proc/self/fd/" + std::to_string(m_file.get());
        result =
            ::linkat(AT_FDCWD, path.c_str(), m_directory.descriptor(), m_name.c_str(), AT_SYMLINK_FOLLOW);
    }
    if (result == 0)
        return EResult::Done;
    error = "it cannot be given its name in " + m_directory.path() + ": " + reason(errno);
    return errno == EEXIST ? EResult::Busy : EResult::Failed;
}

std::unique_ptr<QueueFile> QueueFile::attach(const std::string& queue, QueueGeometry& geometry,
                                             std::string& error, bool& isLate) {
    isLate = false;
    auto name = QueueDirectory::fileName(queue, error);
    if (!name)
        return nullptr;
    auto directory = QueueDirectory::open(error);
    if (!directory)
        return nullptr;
    const std::string path = directory->path() + "/" + *name;
    const auto end = std::chrono::steady_clock::now() + s_takeOverPatience;
    base::UniqueFd handle;
    for (;;) {
        handle = openNamed(directory->descriptor(), *name);
        if (!handle) {
            isLate = errno == ENOENT && QueueMaker::isHanded();
            error = isLate ? "it is gone: its host has let go of it since it started this process"
                           : path + ": " + reason(errno);
            return nullptr;
        }
        if (!isQueueOfOurs(handle)) {
            error = path + " is no queue of ours";
            return nullptr;
        }
        // The exclusive lock is held for moments only, by a process that removes the file.
        if (setLock(handle.get(), F_RDLCK, s_attachedByte) &&
            namesFile(directory->descriptor(), *name, handle.get()))
            break;
        if (std::chrono::steady_clock::now() >= end) {
            error = path + " is being removed";
            return nullptr;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // From here on its destructor cleans up after the last one who was attached.
    std::unique_ptr<QueueFile> file(
        new QueueFile(std::move(*directory), std::move(*name), std::move(handle)));
    file->m_isPeers = true;
    if (!file->creatorLives()) {
        error = "the process that made it has ended";
        return nullptr;
    }
    QueueHeader header;
    struct stat info {};
    if (!readHeader(file->descriptor(), header) || header.magic != QueueHeader::s_magic ||
        header.version != QueueHeader::s_version) {
        error = path + " does not begin like a queue of this version";
        return nullptr;
    }
    const auto sizes = QueueGeometry::make(header.capacity, header.messageSize);
    if (!sizes || ::fstat(file->descriptor(), &info) != 0 ||
        info.st_size != static_cast<off_t>(sizes->fileSize)) {
        error = path + " is damaged: its size does not fit " + std::to_string(header.capacity) +
                " messages of " + std::to_string(header.messageSize) + " bytes";
        return nullptr;
    }
    const PidNamespace pids = PidNamespace::own();
    if (header.pidNamespaceDevice != pids.device || header.pidNamespaceInode != pids.inode) {
        error = "it was made in another PID namespace; start the driver process beside its host";
        return nullptr;
    }
    if (std::string refusal = QueueMaker::refusal({header.maker, header.number}); !refusal.empty()) {
        isLate = QueueMaker::isHanded();
        error = std::move(refusal);
        return nullptr;
    }
    geometry = *sizes;
    return file;
}

QueueFile::~QueueFile() {
    release();
}

void QueueFile::release() {
    if (!m_file)
        return;
    removeName();
    // A child that was made without the C library's fork has the open file, too, and would keep its locks.
    unlockAll(m_file.get());
    m_file.reset();
}

bool QueueFile::removeName() {
    // First let go, then try to have it alone: of several that leave together the last one succeeds.
    setLock(m_file.get(), F_UNLCK, s_attachedByte);
    if (setLock(m_file.get(), F_WRLCK, s_attachedByte) &&
        namesFile(m_directory.descriptor(), m_name, m_file.get()))
        ::unlinkat(m_directory.descriptor(), m_name.c_str(), 0);
    // A host that is killed lets go of its queues, and a little later of its directory.
    m_directory.removeIfLeft(m_isPeers ? s_hostsEnd : std::chrono::milliseconds());
    return !namesFile(m_directory.descriptor(), m_name, m_file.get());
}

void QueueFile::abandon() {
    m_file.reset();
    m_directory.reset();
}

bool QueueFile::takeTicket(std::uint32_t ticket) {
    return setLock(m_file.get(), F_WRLCK, s_ticketBytes + ticket);
}

bool QueueFile::ticketHeld(std::uint32_t ticket) const {
    return isLocked(m_file.get(), s_ticketBytes + ticket);
}

bool QueueFile::takeReceiver() {
    return setLock(m_file.get(), F_WRLCK, s_receiverByte);
}

bool QueueFile::receiverLives() const {
    return isLocked(m_file.get(), s_receiverByte);
}

bool QueueFile::creatorLives() const {
    return isCreatorLocked(m_file.get());
}

unsigned int QueueFile::holders() const {
    return 1 + countLocks(m_file.get(), s_ticketBytes, s_ticketBytes + (off_t{1} << 32));
}

bool QueueFile::hasSize(std::size_t size) const {
    struct stat info {};
    return ::fstat(m_file.get(), &info) == 0 && info.st_size == static_cast<off_t>(size);
}

bool QueueFile::allocate(std::size_t offset, std::size_t size) const {
    return allocateRange(m_file.get(), offset, size);
}

void QueueFile::punch(std::size_t offset, std::size_t size) const {
    ::fallocate(m_file.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(offset),
                static_cast<off_t>(size));
}

base::UniqueFd QueueFile::reopen() const {
    const std::string path = "/proc/self/fd/" + std::to_string(m_file.get());
    base::UniqueFd file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!file) {
        file = openNamed(m_directory.descriptor(), m_name);
        if (file && !namesFile(m_directory.descriptor(), m_name, m_file.get()))
            file.reset();
    }
    return file;
}

bool QueueFile::waitForCreatorEnd(int descriptor) {
    struct flock lock = lockOf(F_RDLCK, s_creatorByte, 1);
    int result = 0;
    do {
        result = ::fcntl(descriptor, F_OFD_SETLKW, &lock);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

}  // namespace sal
