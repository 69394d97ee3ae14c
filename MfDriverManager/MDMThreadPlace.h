#pragma once

#include <cstddef>

/// Spreads threads over a few places, each with cache lines of its own for what a thread counts or locks. A
/// thread keeps its place; threads that begin one after the other have different places.
class MDMThreadPlace {
public:
    static constexpr std::size_t s_places = 8;
    /// Places lie as far apart as cache lines are.
    static constexpr std::size_t s_distance = 64;

    /// The calling thread's, below s_places.
    static std::size_t current();
};
