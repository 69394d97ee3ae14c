#pragma once

#include <chrono>
#include <functional>
#include <optional>

/// When one driver is started again: at once after it has run well for a while, else soon after its first end
/// and ever later while it keeps ending. Owned by DriverTable, which serializes the calls.
class RestartPlan {
public:
    using Duration = std::chrono::milliseconds;

    struct Settings {
        Duration firstDelay{1000};
        Duration longestDelay{60000};
        Duration healthyTime{60000};                       ///< of running, after which the plan begins anew
        std::optional<unsigned int> limit = std::nullopt;  ///< tries in a row; nothing: without end
        std::function<double()> random = nullptr;          ///< from 0 to 1; nothing: a generator of its own
    };

    /// The share of a delay by which it is varied at random, so that drivers that ended together do not start
    /// together for ever.
    static constexpr double s_jitter = 0.1;

    explicit RestartPlan(const Settings& settings) : m_settings(settings) {}

    /// The driver has ended after running that long (0: it did not come up). The time until it is to be
    /// started again; nothing when the limit is reached.
    std::optional<Duration> ended(Duration ran);
    /// The start was put off before it was tried, which does not count as a try. The time until the next
    /// look.
    Duration putOff() { return nextDelay(); }
    void reset() { m_tries = m_delays = 0; }

private:
    Duration nextDelay();

    const Settings& m_settings;
    unsigned int m_tries = 0;   ///< in a row
    unsigned int m_delays = 0;  ///< starts in a row that were not at once
};
