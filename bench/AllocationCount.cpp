#include "AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::uint64_t> s_allocations{0};
}

std::uint64_t allocationCount() {
    return s_allocations.load(std::memory_order_relaxed);
}

// noinline: the compiler must not see that new and free meet.
[[gnu::noinline]] void* operator new(std::size_t size) {
    s_allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size))
        return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
[[gnu::noinline]] void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    operator delete(p);
}
void operator delete[](void* p) noexcept {
    operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    operator delete(p);
}
