#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <thread>

#include "MDMThreadPlace.h"

/// How many threads are inside something. Threads count in different places, so that those that come and go
/// side by side do not slow each other down. Any thread.
class MDMUseCount {
public:
    /// Returns the place to leave by.
    std::size_t enter() {
        const std::size_t place = MDMThreadPlace::current();
        m_places[place].count.fetch_add(1);
        return place;
    }
    void leave(std::size_t place) { m_places[place].count.fetch_sub(1); }

    /// Returns after every thread that was inside has left. The caller sees to it that a thread that enters
    /// meanwhile leaves at once.
    void waitForAll() const {
        for (const Place& place : m_places) {
            while (place.count.load() != 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

private:
    struct Place {
        std::atomic<unsigned int> count{0};
        char padding[MDMThreadPlace::s_distance - sizeof(std::atomic<unsigned int>)] = {};
    };

    std::array<Place, MDMThreadPlace::s_places> m_places;
};
