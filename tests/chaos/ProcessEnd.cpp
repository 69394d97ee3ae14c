#include "ProcessEnd.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "Patience.h"

bool isDeadWithin(pid_t pid, std::chrono::milliseconds patience) {
    const int fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (fd < 0)
        return true;
    pollfd watched{fd, POLLIN, 0};
    bool isDead = false;
    for (Patience left(patience); !isDead && !left.isOver();)
        isDead = ::poll(&watched, 1, 100) > 0;
    ::close(fd);
    return isDead;
}
