#pragma once

#include <chrono>
#include <functional>
#include <optional>

/// When a site tries again to reach its broker: half a second after a try, then twice as long from one try to
/// the next, up to half a minute, each half as long to half as long again by chance. Knows no clock. Used by
/// one thread.
class Backoff {
public:
    using Duration = std::chrono::steady_clock::duration;
    /// A part of the longest, chosen anew each time.
    using Random = std::function<Duration(Duration longest)>;

    explicit Backoff(Random random);

    /// A try begins. Returns how long after that the next one may, should it fail.
    Duration begin();
    /// A connection has ended that has lasted so long. Returns how long after that the next try may begin;
    /// nothing for one that was too short to be a good one: what begin() has said holds.
    std::optional<Duration> lost(Duration lasted);
    /// The pause after the next try, without chance.
    Duration pause() const { return m_pause; }

private:
    const Random m_random;
    Duration m_pause;
};
