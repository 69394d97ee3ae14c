#include "QueueDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>

namespace sal {

namespace {

constexpr std::size_t s_randomLetters = 6;

std::string configuredPath() {
    const char* pSetting = std::getenv("MFD_QUEUE_DIR");
    // With a slash after it the last element would be followed where it is a link.
    std::string path(pSetting ? pSetting : "");
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    return path;
}

std::string octal(mode_t mode) {
    std::string text = "0";
    for (int shift = 6; shift >= 0; shift -= 3)
        text += static_cast<char>('0' + (mode >> shift & 7));
    return text;
}

bool isOwnPath(const std::string& path) {
    const std::string pattern = QueueDirectory::ownPattern();
    const std::size_t fixed = pattern.size() - s_randomLetters;
    return path.size() == pattern.size() && path.compare(0, fixed, pattern, 0, fixed) == 0 &&
           std::all_of(path.begin() + static_cast<std::ptrdiff_t>(fixed), path.end(),
                       [](unsigned char letter) { return letter < 128 && std::isalnum(letter) != 0; });
}

}  // namespace

std::string QueueDirectory::ownPattern() {
    return "/dev/shm/mfd-" + std::to_string(::geteuid()) + "-" + std::string(s_randomLetters, 'X');
}

std::optional<QueueDirectory> QueueDirectory::open(std::string& error) {
    const std::string path = configuredPath();
    if (path.empty()) {
        error = "MFD_QUEUE_DIR does not name the directory of the host's queues";
        return std::nullopt;
    }
    return openAt(path, error);
}

std::optional<QueueDirectory> QueueDirectory::openOrMake(std::string& error) {
    const std::string path = configuredPath();
    if (!path.empty() && ::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        error = "queue directory " + path + " cannot be made: " + std::strerror(errno);
        return std::nullopt;
    }
    return open(error);
}

std::optional<QueueDirectory> QueueDirectory::openAt(const std::string& path, std::string& error) {
    const std::string what = "queue directory " + path;
    base::UniqueFd handle(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!handle) {
        const int reason = errno;
        struct stat info {};
        const bool isLink = ::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
        error = what + (isLink ? " is a link; name the directory itself"
                               : std::string(" cannot be opened: ") + std::strerror(reason));
        return std::nullopt;
    }
    struct stat info {};
    if (::fstat(handle.get(), &info) != 0) {
        error = what + " cannot be read: " + std::strerror(errno);
        return std::nullopt;
    }
    if (info.st_uid != ::geteuid()) {
        error = what + " belongs to user " + std::to_string(info.st_uid) + ", not to user " +
                std::to_string(::geteuid());
        return std::nullopt;
    }
    if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        error = what + " is open to other users (mode " + octal(info.st_mode) + "); it must be 0700";
        return std::nullopt;
    }
    return QueueDirectory(std::move(handle), path);
}

std::vector<QueueDirectory> QueueDirectory::left() {
    std::vector<QueueDirectory> found;
    const std::filesystem::path parent = std::filesystem::path(ownPattern()).parent_path();
    std::error_code failed;
    for (std::filesystem::directory_iterator entry(parent, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        const std::string path = entry->path().string();
        struct stat info {};
        // Those of other users are not even opened.
        if (!isOwnPath(path) || ::lstat(path.c_str(), &info) != 0 || info.st_uid != ::geteuid())
            continue;
        base::UniqueFd handle(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (handle && ::fstat(handle.get(), &info) == 0 && info.st_uid == ::geteuid() &&
            ::flock(handle.get(), LOCK_EX | LOCK_NB) == 0)
            found.push_back(QueueDirectory(std::move(handle), path));
    }
    return found;
}

bool QueueDirectory::isHostsOwn() const {
    return isOwnPath(m_path);
}

bool QueueDirectory::isStillThere() const {
    struct stat named {};
    struct stat open {};
    return ::lstat(m_path.c_str(), &named) == 0 && ::fstat(m_handle.get(), &open) == 0 &&
           named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

bool QueueDirectory::lockForHost() {
    return ::flock(m_handle.get(), LOCK_SH | LOCK_NB) == 0 && isStillThere();
}

void QueueDirectory::removeIfLeft(std::chrono::milliseconds patience) {
    if (!m_handle || !isHostsOwn())
        return;
    const auto end = std::chrono::steady_clock::now() + patience;
    std::error_code failed;
    do {
        if (::flock(m_handle.get(), LOCK_EX | LOCK_NB) == 0) {
            if (isStillThere() && ::rmdir(m_path.c_str()) == 0)
                return;
            ::flock(m_handle.get(), LOCK_UN);
        } else if (std::chrono::steady_clock::now() >= end) {
            return;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        // Another process that removed its last file meanwhile found the lock taken, and went.
    } while (isStillThere() && std::filesystem::is_empty(m_path, failed));
}

std::optional<std::string> QueueDirectory::fileName(const std::string& queue, std::string& error) {
    static constexpr char digits[] = "0123456789ABCDEF";
    if (queue.empty()) {
        error = "a queue needs a name";
        return std::nullopt;
    }
    std::string name;
    for (const char letter : queue) {
        const auto byte = static_cast<unsigned char>(letter);
        const bool plain = byte < 128 && (std::isalnum(byte) != 0 || byte == '_' || byte == '-');
        if (plain || (byte == '.' && !name.empty())) {
            name += letter;
        } else {
            name += '%';
            name += digits[byte >> 4];
            name += digits[byte & 15];
        }
    }
    if (name.size() > NAME_MAX) {
        error = "the name is too long: its file name would have " + std::to_string(name.size()) +
                " bytes, at most " + std::to_string(NAME_MAX) + " are possible";
        return std::nullopt;
    }
    return name;
}

}  // namespace sal
