// The time of day is MFD_TEST_CLOCK_SHIFT seconds later than it is, or earlier; what only goes on is as it
// is.

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

namespace {

bool isTimeOfDay(clockid_t clock) {
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    timespec* pTime) noexcept {
    const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, pTime));
    const char* const pShift = std::getenv("MFD_TEST_CLOCK_SHIFT");
    if (result == 0 && pShift && isTimeOfDay(clock))
        pTime->tv_sec += std::atol(pShift);
    return result;
}
