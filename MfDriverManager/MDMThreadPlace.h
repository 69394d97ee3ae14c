#pragma once

#include <cstddef>

/// Spreads threads over a few places, so that what they count or lock stands on cache lines of their own. A
/// thread keeps its place; threads that follow each other have different ones.
class MDMThreadPlace {
public:
    static constexpr std::size_t s_places = 8;
    /// Places lie as far apart as cache lines are.
    static constexpr std::size_t s_distance = 64;

    /// The calling thread's, below s_places.
    static std::size_t current();
};
