#pragma once

#include <chrono>

/// How often one other site is told everything anew because it asks: three times at once, then once in half a
/// minute. An honest one asks after each silence, which takes ten seconds; each answer costs this site all of
/// its values. Used by one thread.
class AnewBudget {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Whether it may be told now, which is counted.
    bool take(Time now);

private:
    Time m_paidUntil{};
};
