#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>

namespace sal {

using FutexWord = std::atomic<std::uint32_t>;

static_assert(sizeof(FutexWord) == sizeof(std::uint32_t) && FutexWord::is_always_lock_free);

/// Whether a futex word is known to this process alone or to every process that maps it.
enum class EFutexScope { Process, Shared };

enum class EFutexWake { Changed, TimedOut, Unmapped };

/// Sleeps while the word holds the value, at most for the time given.
inline EFutexWake futexWait(FutexWord& word, std::uint32_t value, std::chrono::nanoseconds time,
                            EFutexScope scope) {
    const timespec spec{static_cast<time_t>(time.count() / 1'000'000'000),
                        static_cast<long>(time.count() % 1'000'000'000)};
    const int operation = scope == EFutexScope::Process ? FUTEX_WAIT_PRIVATE : FUTEX_WAIT;
    if (syscall(SYS_futex, &word, operation, value, &spec, nullptr, 0) == 0)
        return EFutexWake::Changed;
    switch (errno) {
        case ETIMEDOUT:
            return EFutexWake::TimedOut;
        case EFAULT:
            return EFutexWake::Unmapped;
        default:
            return EFutexWake::Changed;
    }
}

/// A futex word and the value that it keeps until there is something new.
struct FutexWait {
    FutexWord* pWord = nullptr;
    std::uint32_t value = 0;
    EFutexScope scope = EFutexScope::Process;
};

/// Sleeps while each of the words holds its value, at most for the time given; it may end sooner. The kernel
/// takes 128 words at once: a change of one beyond shows only at the end of the time.
inline void futexWaitAny(std::span<const FutexWait> waits, std::chrono::nanoseconds time) {
    constexpr std::chrono::milliseconds shortSleep{10};
    std::array<futex_waitv, FUTEX_WAITV_MAX> words{};
    const std::size_t count = std::min(waits.size(), words.size());
    for (std::size_t i = 0; i < count; ++i) {
        words[i].val = waits[i].value;
        words[i].uaddr = reinterpret_cast<std::uintptr_t>(waits[i].pWord);
        words[i].flags = FUTEX_32 | (waits[i].scope == EFutexScope::Process ? FUTEX_PRIVATE_FLAG : 0);
    }
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    const auto nanoseconds = end.tv_nsec + time.count();
    end.tv_sec += static_cast<time_t>(nanoseconds / 1'000'000'000);
    end.tv_nsec = static_cast<long>(nanoseconds % 1'000'000'000);
    if (syscall(SYS_futex_waitv, words.data(), count, 0, &end, CLOCK_MONOTONIC) >= 0 || errno == ETIMEDOUT ||
        errno == EAGAIN || errno == EINTR)
        return;
    // A kernel before 5.16 does not know the call, and a container's rules may refuse it.
    const FutexWait& first = waits.front();
    futexWait(*first.pWord, first.value, std::min<std::chrono::nanoseconds>(time, shortSleep), first.scope);
}

inline void futexWake(FutexWord& word, int count, EFutexScope scope) {
    const int operation = scope == EFutexScope::Process ? FUTEX_WAKE_PRIVATE : FUTEX_WAKE;
    syscall(SYS_futex, &word, operation, count, nullptr, nullptr, 0);
}

/// Lets the other hyper-thread run while this one spins.
inline void spinPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

}  // namespace sal
