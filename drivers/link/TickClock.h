#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "LinkPayload.h"

/// A site's own clock for what is too old: its ticks, numbered, and when each was told. A FID brings back the
/// newest tick that its sender has heard, so that nobody's clock but ours decides how old it may be. Used by
/// one thread.
class TickClock {
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit TickClock(std::string boot) : m_boot(std::move(boot)) {}

    /// The next tick, which is told now.
    linkpayload::Tick next(Time now);
    /// How long ago that tick was told; nothing for one of another instance, one that is still to come, and
    /// one of more than an hour and a quarter ago.
    std::optional<Time::duration> age(const linkpayload::Tick& tick, Time now) const;

private:
    static constexpr std::size_t s_kept = 4500;

    const std::string m_boot;
    std::uint64_t m_last = 0;
    std::deque<Time> m_told;  ///< of the last ticks, oldest first
};
