#include "MDMThreadPlace.h"

#include <atomic>

std::size_t MDMThreadPlace::current() {
    static std::atomic<std::size_t> s_next{0};
    static thread_local const std::size_t s_place = s_next.fetch_add(1, std::memory_order_relaxed) % s_places;
    return s_place;
}
