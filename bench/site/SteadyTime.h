#pragma once

#include <chrono>
#include <cstdint>

/// Now, of a clock that nobody sets.
inline std::int64_t steadyNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
