#include "DescriptorLimit.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "UniqueFd.h"

namespace {

/// Enough for some 800 driver processes.
constexpr rlim_t s_room = 4096;

}  // namespace

rlim_t raiseDescriptorLimit() {
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return RLIM_INFINITY;
    const rlim_t before = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    // Where the system refuses it the host gets along with what it has.
    static_cast<void>(::setrlimit(RLIMIT_NOFILE, &limit));
    return before;
}

void makeRoomForDescriptors() {
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == 0)
        return;
    const auto last = static_cast<int>(std::min(limit.rlim_cur, s_room) - 1);
    // Where there is no room, the table grows when it has to.
    const base::UniqueFd highest(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, last));
}
