#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

/// How long it takes until all workplaces of one broker are complete again after it was away, in simulated
/// time: the links' own Backoff decides when each tries, their spread when each publishes what it has; the
/// broker is a queue that takes so much of its one processor for each. A value; one thread.
class ReturnModel {
public:
    /// What the broker's processor has to do for one workplace, in seconds.
    struct Costs {
        double connecting = 0;  ///< to take its connection and its subscriptions
        double publishing = 0;  ///< to take all of its values and give them to those who read them
        double running = 0;     ///< of each second afterwards
    };
    struct Plan {
        std::size_t workplaces = 0;
        double away = 0;  ///< seconds
        double spread = 5;
        Costs costs{};
        std::uint64_t seed = 1;
    };
    /// Seconds since the broker came back.
    struct Outcome {
        bool isOver = false;  ///< all are complete, and the broker keeps up
        double half = 0;      ///< of them are
        double all = 0;
        double longestQueue = 0;     ///< seconds of work before it
        std::size_t refused = 0;     ///< tries while it was away
        std::size_t unanswered = 0;  ///< tries that it did not come to in time
    };

    static Outcome run(const Plan& plan);
};
