#include "AllocationLog.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

/// Notes without allocating.
struct Blocks {
    std::array<const void*, 1 << 16> block;
    std::atomic<std::size_t> count{0};

    void note(const void* pBlock) {
        const std::size_t index = count.fetch_add(1);
        if (index < block.size())
            block[index] = pBlock;
    }
    std::vector<const void*> all() const {
        const std::size_t known = count.load();
        if (known > block.size())
            std::abort();
        return std::vector<const void*>(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(known));
    }
};

std::atomic<bool> s_noting{false};
Blocks s_allocated;
Blocks s_freed;

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

bool AllocationLog::available() {
    return false;
}

#else

bool AllocationLog::available() {
    return true;
}

void* operator new(std::size_t size) {
    void* pBlock = std::malloc(size == 0 ? 1 : size);
    if (!pBlock)
        throw std::bad_alloc();
    if (s_noting.load())
        s_allocated.note(pBlock);
    return pBlock;
}

void operator delete(void* pBlock) noexcept {
    if (pBlock && s_noting.load())
        s_freed.note(pBlock);
    std::free(pBlock);
}

void operator delete(void* pBlock, std::size_t) noexcept {
    operator delete(pBlock);
}

#endif

AllocationLog::AllocationLog() {
    s_allocated.count = 0;
    s_freed.count = 0;
    s_noting = true;
}

AllocationLog::~AllocationLog() {
    s_noting = false;
}

std::vector<const void*> AllocationLog::allocated() const {
    s_noting = false;
    return s_allocated.all();
}

std::vector<const void*> AllocationLog::freed() const {
    s_noting = false;
    return s_freed.all();
}
