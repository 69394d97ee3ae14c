#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

/// Counts the messages of one link in both directions, over the last seconds. Used by one thread.
class LinkMeter {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Rates {
        float in = 0;  ///< messages a second, to a tenth
        float out = 0;
    };

    void countIn() { ++m_now.in; }
    void countOut() { ++m_now.out; }

    /// The rates since the oldest of the last few calls; nothing at the first one. About once a second.
    std::optional<Rates> take(Time now);
    /// Begins anew: what was counted is of a connection that is gone.
    void forget() { m_taken.clear(); }

private:
    struct Count {
        Time when{};
        std::uint64_t in = 0;
        std::uint64_t out = 0;
    };

    Count m_now;
    std::deque<Count> m_taken;  ///< oldest first
};
