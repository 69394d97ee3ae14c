#pragma once

#include <atomic>
#include <chrono>

namespace sal {

// A fence between threads, of which one side pays all. The frequent side stores, calls lightFence() and
// loads; the rare side stores, calls a heavy fence and loads; then at least one of them sees the other's
// store. The kernel makes this hold by a fence on every processor on which a process runs that has joined.
//
// Within one process this holds always. Across processes it holds nearly always: the kernel notes on each
// processor whether what runs there has joined, and renews the note only when the processor goes to other
// memory. Where a thread of the process has ended, or the processor has been idle on the process's memory
// since before it joined, the note may say no, and the fence passes by (seen on 6.18: up to one in two). So
// the rare side looks once more after s_settleTime, by which time every store has arrived.

/// No processor keeps a store to itself for nearly as long.
inline constexpr std::chrono::milliseconds s_settleTime{1};

/// Lets this process be the frequent side. False when the kernel or a container's rules refuse: then it must
/// use read-modify-writes in place of the light fence.
bool joinProcessFences();

/// Only keeps the compiler from moving memory accesses over it.
inline void lightFence() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

/// Against the threads of all processes that have joined, nearly always. A few microseconds.
void heavyFence();

/// Against the threads of this process, which has joined. A few microseconds.
void heavyFenceOfProcess();

}  // namespace sal
