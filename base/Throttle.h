#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace base {

/// Lets the first of many equal reports pass and then one every ten seconds. Any thread.
class Throttle {
public:
    bool passes() {
        using std::chrono::milliseconds;
        const auto sinceBoot = std::chrono::steady_clock::now().time_since_epoch();
        const std::int64_t now = std::chrono::duration_cast<milliseconds>(sinceBoot).count();
        std::int64_t next = m_next.load(std::memory_order_relaxed);
        return now >= next && m_next.compare_exchange_strong(next, now + 10'000, std::memory_order_relaxed);
    }

private:
    std::atomic<std::int64_t> m_next{0};
};

}  // namespace base
