#include "QueueDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace sal {

namespace {

std::string configuredPath() {
    const char* pSetting = std::getenv("MFD_QUEUE_DIR");
    if (pSetting == nullptr || *pSetting == '\0') {
        return "/dev/shm/mfd-" + std::to_string(::geteuid());
    }
    // With a slash behind it the last element would be followed where it is a link.
    std::string path(pSetting);
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string octal(mode_t mode) {
    std::string text = "0";
    for (int shift = 6; shift >= 0; shift -= 3) {
        text += static_cast<char>('0' + (mode >> shift & 7));
    }
    return text;
}

}  // namespace

std::optional<QueueDirectory> QueueDirectory::open(std::string& error) {
    std::string path = configuredPath();
    const std::string what = "queue directory " + path;
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        error = what + " cannot be made: " + std::strerror(errno);
        return std::nullopt;
    }
    FileHandle handle(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
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
    return QueueDirectory(std::move(handle), std::move(path));
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
