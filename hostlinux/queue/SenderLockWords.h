#pragma once

#include <array>

#include "Futex.h"

namespace sal {

/// What the senders' lock keeps in shared memory. One cache line: the favoured sender writes it at each
/// message.
struct SenderLockWords {
    /// For one handle that has been favoured; its alone until its process dies.
    struct Seat {
        std::atomic<std::uint32_t> owner{0};   ///< a ticket
        std::atomic<std::uint32_t> inside{0};  ///< while the favoured thread holds the lock: markOf(owner)
    };
    static constexpr std::uint32_t markOf(std::uint32_t ticket) { return ticket ^ 0xa5c3f00dU; }

    FutexWord holder{0};                      ///< ticket of the sender that holds the lock without favour
    std::atomic<std::uint32_t> last{0};       ///< ticket of the last sender that held it so
    std::atomic<std::uint32_t> favoured{0};   ///< ticket of the sender that may pass without holder
    std::atomic<std::uint32_t> unsettled{0};  ///< favour was withdrawn; a thread may still be inside
    std::array<Seat, 6> seats;
};

static_assert(sizeof(SenderLockWords) == 64);

}  // namespace sal
