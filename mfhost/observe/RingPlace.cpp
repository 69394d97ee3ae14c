#include "RingPlace.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>
#include <utility>

#include "Observation.h"
#include "Printable.h"
#include "RandomID.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t s_megabyte = std::size_t{1} << 20;
constexpr std::array<std::size_t, 5> s_sizes{64 * s_megabyte, 32 * s_megabyte, 16 * s_megabyte,
                                             8 * s_megabyte, 4 * s_megabyte};
/// Says to which segments a ring belongs.
constexpr const char* s_placeName = "stream.place";
constexpr const char* s_lockName = "stream.ring.lock";
constexpr std::size_t s_longestPlace = 4096;
constexpr int s_attempts = 10;
constexpr std::size_t s_noLimit = std::numeric_limits<std::size_t>::max();

std::string ownPrefix() {
    return "mfd-" + std::to_string(::geteuid()) + "-ring-";
}

/// A quarter is for values.
std::array<std::size_t, stream::s_rings> partsOf(std::size_t size) {
    const std::size_t values = size / 4 / stream::s_page * stream::s_page;
    return {values, size / stream::s_page * stream::s_page - values};
}

/// Bytes that are free where the directory is; nothing where it is not in memory.
std::optional<std::size_t> freeIn(int directory) {
    struct statfs info {};
    if (::fstatfs(directory, &info) != 0 || (info.f_type != TMPFS_MAGIC && info.f_type != RAMFS_MAGIC))
        return std::nullopt;
    // One without a limit.
    if (info.f_blocks == 0)
        return s_noLimit;
    return static_cast<std::size_t>(info.f_bavail) * static_cast<std::size_t>(info.f_bsize);
}

/// Open only where it is this user's alone.
base::UniqueFd openOwn(const std::string& directory) {
    base::UniqueFd handle(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (handle &&
        (::fstat(handle.get(), &info) != 0 || info.st_uid != ::geteuid() || (info.st_mode & 022) != 0))
        handle.reset();
    return handle;
}

void removeFiles(int directory) {
    for (const char* const pName : {RingPlace::s_fileName, "stream.ring.part", s_placeName, s_lockName})
        ::unlinkat(directory, pName, 0);
}

std::string placeIn(const std::string& directory) {
    std::ifstream file(directory + '/' + s_placeName);
    std::string text;
    std::getline(file, text);
    return text.size() <= s_longestPlace && text.starts_with('/') ? text : std::string();
}

/// What a dead host has left in a directory of its own; nothing where one lives.
std::optional<RingPlace::Left> takeFrom(const std::string& parent, const std::string& name) {
    const std::string directory = parent + '/' + name;
    base::UniqueFd handle = openOwn(directory);
    // Its host lives, or another one is just taking it.
    if (!handle || ::flock(handle.get(), LOCK_EX | LOCK_NB) != 0)
        return std::nullopt;
    std::string error;
    RingPlace::Left left{
        .pSource = stream::StreamSource::open(directory + '/' + RingPlace::s_fileName, error),
        .recording = placeIn(directory),
        .directory = std::move(handle),
        .parent = base::UniqueFd(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
        .name = name};
    if (left.pSource && left.pSource->isLive())
        return std::nullopt;
    if (!left.pSource) {
        left.remove();
        return std::nullopt;
    }
    return left;
}

/// What a dead host has left beside its queues gets a directory of its own there, where the next host's files
/// do not take its place.
void setAside(const std::string& queueDirectory) {
    const base::UniqueFd handle = openOwn(queueDirectory);
    const std::string path = queueDirectory + '/' + RingPlace::s_fileName;
    if (!handle || ::flock(handle.get(), LOCK_EX | LOCK_NB) != 0 || ::access(path.c_str(), F_OK) != 0 ||
        stream::StreamSource::hasWriter(path))
        return;
    std::string aside = queueDirectory + '/' + ownPrefix() + "XXXXXX";
    if (!::mkdtemp(aside.data()))
        return;
    for (const char* const pName : {s_placeName, RingPlace::s_fileName})
        ::renameat(handle.get(), pName, AT_FDCWD, (aside + '/' + pName).c_str());
    removeFiles(handle.get());
}

std::vector<std::string> ownDirectoriesIn(const std::string& parent) {
    std::vector<std::string> names;
    std::error_code failed;
    for (fs::directory_iterator entry(parent, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        if (std::string name = entry->path().filename().string(); name.starts_with(ownPrefix()))
            names.push_back(std::move(name));
    }
    return names;
}

/// Bytes that these files take where the directory is.
std::size_t takenIn(int directory, std::span<const RingPlace::Left> left) {
    struct stat here {};
    if (::fstat(directory, &here) != 0)
        return 0;
    std::size_t taken = 0;
    for (const RingPlace::Left& each : left) {
        struct stat file {};
        if (each.directory && ::fstatat(each.directory.get(), RingPlace::s_fileName, &file, 0) == 0 &&
            file.st_dev == here.st_dev)
            taken += static_cast<std::size_t>(file.st_blocks) * 512;
    }
    return taken;
}

}  // namespace

void RingPlace::Left::remove() {
    if (!directory)
        return;
    removeFiles(directory.get());
    ::unlinkat(parent.get(), name.c_str(), AT_REMOVEDIR);
    directory.reset();
    parent.reset();
}

RingPlace::RingPlace(const Settings& settings, std::span<Left> left) : m_instance(base::randomID()) {
    if (!settings.isWanted)
        return;
    if (!settings.isFile) {
        useMemory(s_sizes.back());
        return;
    }
    if (!settings.queueDirectory.empty()) {
        // As whoever makes the first queue would.
        ::mkdir(settings.queueDirectory.c_str(), 0700);
        m_directory = openOwn(settings.queueDirectory);
    }
    std::string directory = settings.queueDirectory;
    if (!m_directory || !freeIn(m_directory.get())) {
        directory.clear();
        m_directory.reset();
        if (makeDirectory(settings))
            directory = settings.parent + '/' + m_ownDirectory;
    }
    const auto room = m_directory ? freeIn(m_directory.get()) : std::nullopt;
    if (directory.empty() || !room) {
        m_warning = base::quoted(settings.parent) + " is no file system in memory that can be written";
    } else {
        std::size_t size = settings.size.value_or(0);
        const std::size_t all = *room + std::min(takenIn(m_directory.get(), left), s_noLimit - *room);
        for (std::size_t i = 0; size == 0 && i < s_sizes.size(); ++i)
            size = s_sizes[i] <= all / 3 * 2 ? s_sizes[i] : 0;
        if (stream::StreamRing::fileSizeOf(partsOf(size)) > *room) {
            for (Left& each : left)
                each.remove();
        }
        if (size == 0)
            m_warning = "there is too little room in " + base::quoted(directory);
        else if (openIn(directory, size)) {
            std::ofstream(directory + '/' + s_placeName) << settings.recording << '\n';
            return;
        }
    }
    removeNow();
    m_warning = "the stream is kept in memory without a file: " + m_warning;
    useMemory(std::min(settings.size.value_or(s_sizes.back()), s_sizes.back()));
}

RingPlace::~RingPlace() {
    removeNow();
}

/// Its lock says that the host lives.
bool RingPlace::makeDirectory(const Settings& settings) {
    m_parent = base::UniqueFd(::open(settings.parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int attempt = 0; m_parent && attempt < s_attempts; ++attempt) {
        std::string path = settings.parent + '/' + ownPrefix() + "XXXXXX";
        if (!::mkdtemp(path.data()))
            return false;
        m_ownDirectory = path.substr(settings.parent.size() + 1);
        m_directory = openOwn(path);
        // A host that removes what others have left may come before the lock.
        if (m_directory && ::flock(m_directory.get(), LOCK_SH | LOCK_NB) == 0 &&
            ::access(path.c_str(), F_OK) == 0)
            return true;
        ::rmdir(path.c_str());
    }
    return false;
}

bool RingPlace::openIn(const std::string& directory, std::size_t size) {
    const std::string path = directory + '/' + s_fileName;
    m_pRing = stream::StreamRing::create({.path = path, .sizes = partsOf(size), .instance = m_instance},
                                         Observation::now(), m_warning);
    if (m_pRing)
        m_path = path;
    return m_pRing != nullptr;
}

void RingPlace::useMemory(std::size_t size) {
    std::string error;
    m_pRing = stream::StreamRing::create({.path = {}, .sizes = partsOf(size), .instance = m_instance},
                                         Observation::now(), error);
    if (!m_pRing)
        m_warning = "nothing is recorded: " + error;
}

void RingPlace::removeNow() {
    // Of the queues' directory another host may have the files.
    if (m_directory && (m_pRing || !m_ownDirectory.empty()) && (!m_path.empty() || !m_ownDirectory.empty()))
        removeFiles(m_directory.get());
    if (m_parent && !m_ownDirectory.empty())
        ::unlinkat(m_parent.get(), m_ownDirectory.c_str(), AT_REMOVEDIR);
    m_path.clear();
    m_directory.reset();
    m_parent.reset();
}

std::vector<RingPlace::Left> RingPlace::takeLeft(const Settings& settings) {
    std::vector<Left> found;
    if (!settings.queueDirectory.empty())
        setAside(settings.queueDirectory);
    for (const std::string& parent : {settings.parent, settings.queueDirectory}) {
        for (const std::string& name : ownDirectoriesIn(parent)) {
            auto left = takeFrom(parent, name);
            if (!left)
                continue;
            if (left->recording.empty())
                left->recording = settings.recording;
            found.push_back(std::move(*left));
        }
    }
    return found;
}
