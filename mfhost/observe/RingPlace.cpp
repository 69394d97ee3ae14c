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
        return std::numeric_limits<std::size_t>::max();
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

/// What a dead host has left in that directory, which is removed; nothing where one lives.
std::optional<RingPlace::Left> takeFrom(const std::string& directory, bool isOwn) {
    const base::UniqueFd handle = openOwn(directory);
    // Its host lives, or another one is just taking it.
    if (!handle || ::flock(handle.get(), LOCK_EX | LOCK_NB) != 0)
        return std::nullopt;
    const std::string path = directory + '/' + RingPlace::s_fileName;
    if (!isOwn && ::access(path.c_str(), F_OK) != 0)
        return std::nullopt;
    std::string error;
    RingPlace::Left left{.pSource = stream::StreamSource::open(path, error), .recording = placeIn(directory)};
    if (left.pSource && left.pSource->isLive())
        return std::nullopt;
    removeFiles(handle.get());
    if (isOwn)
        ::rmdir(directory.c_str());
    if (!left.pSource)
        return std::nullopt;
    return left;
}

}  // namespace

RingPlace::RingPlace(const Settings& settings) : m_instance(base::randomID()) {
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
        for (std::size_t i = 0; size == 0 && i < s_sizes.size(); ++i)
            size = s_sizes[i] <= *room / 3 * 2 ? s_sizes[i] : 0;
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
    const auto take = [&](const std::string& directory, bool isOwn) {
        auto left = takeFrom(directory, isOwn);
        if (!left)
            return;
        if (left->recording.empty())
            left->recording = settings.recording;
        found.push_back(std::move(*left));
    };
    std::error_code failed;
    for (fs::directory_iterator entry(settings.parent, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        if (entry->path().filename().string().starts_with(ownPrefix()))
            take(entry->path().string(), true);
    }
    if (!settings.queueDirectory.empty())
        take(settings.queueDirectory, false);
    return found;
}
