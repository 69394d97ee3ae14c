#pragma once

#include <chrono>

#include "UpdateSeries.h"

/// So many driver processes as one way of running them has them: all started at once from nothing, and one
/// started again after it was killed. Each operation returns how many milliseconds it took until every
/// driver, or that one, had answered a message; it throws when that takes too long. Used by one thread; all
/// processes end with the object.
class StartPeer {
public:
    static constexpr std::chrono::seconds s_patience{120};

    virtual ~StartPeer() = default;

    /// Once.
    virtual double start(int drivers) = 0;
    /// The driver's process is killed; the answer is of its next one.
    virtual double restart(int driver) = 0;

protected:
    static double millisecondsSince(std::int64_t begin) {
        return static_cast<double>(UpdateSeries::now() - begin) / 1e6;
    }
};
