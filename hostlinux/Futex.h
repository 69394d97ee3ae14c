#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <ctime>

namespace sal {

using FutexWord = std::atomic<std::uint32_t>;

static_assert(sizeof(FutexWord) == sizeof(std::uint32_t) && FutexWord::is_always_lock_free);

/// Whether a futex word is known to this process alone or to every process that maps it.
enum class FutexScope { eProcess, eShared };

enum class FutexWake { eChanged, eTimedOut, eUnmapped };

/// Sleeps while the word holds the value, at most for the time given.
inline FutexWake futexWait(FutexWord& word, std::uint32_t value, std::chrono::nanoseconds time,
                           FutexScope scope) {
    const timespec spec{static_cast<time_t>(time.count() / 1'000'000'000),
                        static_cast<long>(time.count() % 1'000'000'000)};
    const int operation = scope == FutexScope::eProcess ? FUTEX_WAIT_PRIVATE : FUTEX_WAIT;
    if (syscall(SYS_futex, &word, operation, value, &spec, nullptr, 0) == 0) {
        return FutexWake::eChanged;
    }
    switch (errno) {
        case ETIMEDOUT:
            return FutexWake::eTimedOut;
        case EFAULT:
            return FutexWake::eUnmapped;
        default:
            return FutexWake::eChanged;
    }
}

inline void futexWake(FutexWord& word, int count, FutexScope scope) {
    const int operation = scope == FutexScope::eProcess ? FUTEX_WAKE_PRIVATE : FUTEX_WAKE;
    syscall(SYS_futex, &word, operation, count, nullptr, nullptr, 0);
}

/// Lets the other hyper-thread run while this one spins.
inline void spinPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

}  // namespace sal
