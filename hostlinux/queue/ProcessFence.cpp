#include "ProcessFence.h"

#include <linux/membarrier.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <thread>

#include "UniqueFd.h"

namespace sal {

namespace {

// Where every kind of fence is refused: no processor keeps a store to itself for nearly as long.
constexpr std::chrono::milliseconds s_settled{2};
// The round over all processors takes 0.3 ms on two; where they are all busy it waits its turn on each.
constexpr int s_longestRoundInMs = 1000;
constexpr long s_mostProcessors = 8192;
constexpr long s_bitsInAWord = sizeof(unsigned long) * CHAR_BIT;

bool membarrier(int command) {
    return syscall(SYS_membarrier, command, 0, 0) == 0;
}

/// Of a child that shares nothing with its parent: system calls only, since other threads of the parent may
/// have held any lock. Ends the child: 0 when it has run on every processor that this process may use.
[[noreturn]] __attribute__((no_sanitize("address", "thread", "undefined"))) void runOnEveryProcessor(
    long processors) {
    syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
    syscall(SYS_close_range, 0U, ~0U, 0U);
    unsigned long mask[s_mostProcessors / s_bitsInAWord] = {};
    for (long processor = 0; processor < processors; ++processor) {
        unsigned long& word = mask[processor / s_bitsInAWord];
        word = 1UL << (processor % s_bitsInAWord);
        // EINVAL: there is none of this number, or not for this process.
        if (syscall(SYS_sched_setaffinity, 0, sizeof mask, mask) < 0 && errno != EINVAL)
            syscall(SYS_exit_group, 1);
        word = 0;
    }
    for (;;)
        syscall(SYS_exit_group, 0);
}

/// The kernel notes on each processor whether the process that runs there has joined, and renews the note
/// when the processor goes to other memory. A processor that ran this process before it joined, and has been
/// idle since, keeps this process's memory and the old note, and no fence reaches the threads that run there
/// next (seen on 6.18: up to 200 of a million fences had no effect). A child, which has memory of its own,
/// runs on each processor once; from then on every note is right.
bool renewEveryNote() {
    const long processors = sysconf(_SC_NPROCESSORS_CONF);
    if (processors <= 0 || processors > s_mostProcessors)
        return false;
    int fd = -1;
    // Without a signal at its end: neither a handler of this process nor its waits for other children see it.
    const long child = syscall(SYS_clone, CLONE_PIDFD, nullptr, &fd, nullptr, nullptr);
    if (child == 0)
        runOnEveryProcessor(processors);
    if (child < 0)
        return false;
    const base::UniqueFd process(fd);
    pollfd ended{process.get(), POLLIN, 0};
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(s_longestRoundInMs);
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        const int found = left.count() > 0 ? poll(&ended, 1, static_cast<int>(left.count())) : 0;
        if (found > 0)
            break;
        if (found < 0 && errno == EINTR)
            continue;
        syscall(SYS_pidfd_send_signal, process.get(), SIGKILL, nullptr, 0);
        break;
    }
    siginfo_t info{};
    while (waitid(P_PIDFD, static_cast<id_t>(process.get()), &info, WEXITED | __WALL) != 0) {
        if (errno != EINTR)
            return false;
    }
    return info.si_code == CLD_EXITED && info.si_status == 0;
}

/// While the library is loaded the process has one thread and joins at once; one that has several waits for
/// the kernel, 3 ms to 10 ms in each start of a driver process. A queue that asks later learns what came of
/// it.
[[maybe_unused]] const bool s_isJoinedEarly = joinProcessFences();

}  // namespace

bool joinProcessFences() {
    // A child of a fork finds its parent's number.
    static std::atomic<pid_t> s_joined{0};
    const pid_t process = getpid();
    if (s_joined.load(std::memory_order_acquire) == process)
        return true;
    if (!membarrier(MEMBARRIER_CMD_REGISTER_GLOBAL_EXPEDITED) || !renewEveryNote())
        return false;
    s_joined.store(process, std::memory_order_release);
    return true;
}

void heavyFence() {
    if (!membarrier(MEMBARRIER_CMD_GLOBAL_EXPEDITED) && !membarrier(MEMBARRIER_CMD_GLOBAL))
        std::this_thread::sleep_for(s_settled);
}

}  // namespace sal
