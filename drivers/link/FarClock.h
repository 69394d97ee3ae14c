#pragma once

#include <chrono>
#include <optional>

#include "LinkPayload.h"

/// When something was at another site, by this machine's clock: learned from the times that the other site's
/// ticks tell, and from how long they were on their way. Both clocks may be wrong by any amount; nothing but
/// the ages that are shown depends on them. Used by one thread.
class FarClock {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Duration = Time::duration;

    /// A tick has come that was told at that time there. A word takes so long there and back, where that is
    /// known.
    void take(linkpayload::Time told, std::optional<Duration> delay, Time now);
    /// When that was, not later than now; now while no tick has come.
    Time here(linkpayload::Time there, Time now) const;
    /// The other site has another clock from now on.
    void forget() { m_best.reset(); }

private:
    using Milliseconds = std::chrono::milliseconds;

    /// What one tick has told.
    struct Sample {
        Milliseconds ahead;  ///< their clock before ours
        Duration delay;      ///< the longest where it was not known
        Time when;
    };

    std::optional<Sample> m_best;
};
