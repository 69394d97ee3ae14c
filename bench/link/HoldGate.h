#pragma once

#include <cstdint>
#include <string>

#include "SharedSemaphore.h"

/// Keeps a receiving driver inside the first FID of a burst until all of the burst stands in its queue. Who
/// carries the FIDs to it then neither wakes it for each of them nor waits for it, so that what a FID costs
/// does not hang on who is faster.
class HoldGate {
public:
    /// Fewer than a driver's queue holds.
    static constexpr std::uint64_t s_size = 200;

    explicit HoldGate(const std::string& file) : m_free(file + ".free", 1), m_whole(file + ".whole", 0) {}

    /// The sender's, before a burst: waits until the receiver is through with the one before.
    void begin() { m_free.take(); }
    /// The sender's: the burst is in the queue.
    void release() { m_whole.give(); }
    /// The receiver's, inside the first FID.
    void hold() { m_whole.take(); }
    /// The receiver's, inside the last one.
    void end() { m_free.give(); }

private:
    SharedSemaphore m_free;
    SharedSemaphore m_whole;
};
