#include "ProcessFence.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace sal {

namespace {

bool membarrier(int command) {
    return syscall(SYS_membarrier, command, 0, 0) == 0;
}

/// While the library is loaded the process has one thread and joins at once; one that has several waits for
/// the kernel, 3 ms to 10 ms in each start of a driver process. A queue that asks later learns what came of
/// it.
[[maybe_unused]] const bool s_isJoinedEarly = joinProcessFences();

}  // namespace

bool joinProcessFences() {
    return membarrier(MEMBARRIER_CMD_REGISTER_GLOBAL_EXPEDITED) &&
           membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
}

void heavyFence() {
    if (!membarrier(MEMBARRIER_CMD_GLOBAL_EXPEDITED) && !membarrier(MEMBARRIER_CMD_GLOBAL))
        std::this_thread::sleep_for(s_settleTime);
}

void heavyFenceOfProcess() {
    if (membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED))
        return;
    heavyFence();
    std::this_thread::sleep_for(s_settleTime);
}

}  // namespace sal
