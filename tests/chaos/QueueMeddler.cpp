#include "QueueMeddler.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

#include "QueueLayout.h"

namespace fs = std::filesystem;

namespace {

constexpr off_t s_headerEnd = 4096;
constexpr off_t s_everythingEnd = 512L * 1024;
constexpr off_t s_constantsEnd = offsetof(sal::QueueHeader, broken);

bool writeAll(int fd, const void* pData, std::size_t size, off_t offset) {
    return ::pwrite(fd, pData, size, offset) == static_cast<ssize_t>(size);
}

/// The last ticket is the driver process's. The favour comes first: whoever is favoured does not look at the
/// holder.
bool leaveTicket(int fd) {
    std::uint32_t next = 0;
    if (::pread(fd, &next, sizeof next, offsetof(sal::QueueHeader, nextTicket)) != sizeof next)
        return false;
    const std::uint32_t none = 0;
    const std::uint32_t last = next - 1;
    const off_t lock = offsetof(sal::QueueHeader, senderLock);
    return writeAll(fd, &none, sizeof none, lock + offsetof(sal::SenderLockWords, favoured)) &&
           writeAll(fd, &last, sizeof last, lock + offsetof(sal::SenderLockWords, holder));
}

}  // namespace

QueueMeddler::QueueMeddler(pid_t process, const std::string& queue) {
    std::error_code ignored;
    for (fs::directory_iterator entry("/proc/" + std::to_string(process) + "/fd", ignored), end;
         !ignored && entry != end; entry.increment(ignored)) {
        std::error_code gone;
        const fs::path target = fs::read_symlink(entry->path(), gone);
        if (target.filename() == queue && fs::is_regular_file(target, gone))
            m_file = target;
    }
}

bool QueueMeddler::damage(EDamage how, std::uint32_t seed) const {
    struct stat status {};
    if (m_file.empty() || ::stat(m_file.c_str(), &status) != 0)
        return false;
    const off_t end = std::min(status.st_size, how == EDamage::Everything ? s_everythingEnd : s_headerEnd);
    std::vector<std::uint32_t> nonsense(static_cast<std::size_t>(end - s_constantsEnd) /
                                        sizeof(std::uint32_t));
    std::mt19937 random(seed);
    std::generate(nonsense.begin(), nonsense.end(),
                  [&random] { return static_cast<std::uint32_t>(random()); });

    const pid_t child = ::fork();
    if (child == 0) {
        const int fd = ::open(m_file.c_str(), O_RDWR | O_CLOEXEC);
        bool isDone = false;
        if (how == EDamage::CutShort)
            isDone = ::ftruncate(fd, 100) == 0;
        else if (how == EDamage::Ticket)
            isDone = leaveTicket(fd);
        else
            isDone = writeAll(fd, nonsense.data(), nonsense.size() * sizeof(std::uint32_t), s_constantsEnd);
        ::_exit(isDone ? 0 : 1);
    }
    int ended = 1;
    return child > 0 && ::waitpid(child, &ended, 0) == child && ended == 0;
}
