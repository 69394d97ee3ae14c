#pragma once

#include <sched.h>

#include <array>
#include <atomic>
#include <chrono>
#include <thread>

/// How many threads are inside something. Each processor counts on a cache line of its own, so that threads
/// that come and go side by side do not slow each other down. Any thread.
class MDMUseCount {
public:
    /// Returns the place to leave by: the thread may be on another processor by then.
    unsigned int enter() {
        const auto place = static_cast<unsigned int>(sched_getcpu()) % s_places;
        m_places[place].count.fetch_add(1);
        return place;
    }
    void leave(unsigned int place) { m_places[place].count.fetch_sub(1); }

    /// Returns once everybody who was inside has left. Whoever enters meanwhile has to find the door shut and
    /// leave at once.
    void waitForAll() const {
        for (const Place& place : m_places)
            while (place.count.load() != 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

private:
    static constexpr unsigned int s_places = 8;

    /// As far apart as cache lines are.
    struct Place {
        std::atomic<unsigned int> count{0};
        char padding[64 - sizeof(std::atomic<unsigned int>)] = {};
    };

    std::array<Place, s_places> m_places;
};
