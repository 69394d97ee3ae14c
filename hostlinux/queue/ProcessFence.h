#pragma once

#include <atomic>

namespace sal {

// A fence between the threads of several processes, of which one side pays all. The frequent side stores,
// calls lightFence() and loads; the rare side stores, calls heavyFence() and loads; then at least one of them
// sees the other's store. The kernel makes this hold by a fence on every processor on which a process runs
// that has joined.

/// Lets this process be the frequent side. On any thread; the first time some 0.4 ms, at most about 1 s where
/// all processors are busy. False when the kernel or a container's rules refuse, or not every processor could
/// be reached: then it must use read-modify-writes in place of the light fence.
bool joinProcessFences();

/// Only keeps the compiler from moving memory accesses over it.
inline void lightFence() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

/// A few microseconds.
void heavyFence();

}  // namespace sal
