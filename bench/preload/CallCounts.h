#pragma once

#include <atomic>
#include <cstdint>

/// What the counting library and whoever reads it share, in a file that begins as zeros.
struct CallCounts {
    std::atomic<bool> areCounted;  ///< the library is loaded
    std::atomic<std::uint64_t> waitid;
    std::atomic<std::uint64_t> poll;
    std::atomic<std::uint64_t> epollWait;
};
