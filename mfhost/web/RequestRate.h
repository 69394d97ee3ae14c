#pragma once

#include <chrono>

/// How many requests may begin: a number each second, of which those of a second may come at once. The last
/// fifth of that second is kept for root and the starter, so that nobody else can lock them out by asking
/// without end. Owned by ApiServer; API thread.
class RequestRate {
public:
    using Clock = std::chrono::steady_clock;

    RequestRate(unsigned perSecond, Clock::time_point now);

    /// Whether one more may begin; it counts then.
    bool take(bool isFavoured, Clock::time_point now);

private:
    const double m_perSecond;
    double m_left;
    Clock::time_point m_filled;
};
