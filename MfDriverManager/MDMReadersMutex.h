#pragma once

#include <sched.h>

#include <array>
#include <cstddef>
#include <mutex>

/// Guards what many threads look at for an instant and what seldom changes. A reader locks the mutex of its
/// processor, a writer those of all: readers on different processors touch nothing in common.
class MDMReadersMutex {
public:
    class Reader {
    public:
        explicit Reader(MDMReadersMutex& mutex)
            : m_lock(mutex.m_places[static_cast<std::size_t>(sched_getcpu()) % s_places].mutex) {}

    private:
        std::lock_guard<std::mutex> m_lock;
    };

    class Writer {
    public:
        explicit Writer(MDMReadersMutex& mutex) {
            for (std::size_t i = 0; i < s_places; ++i)
                m_locks[i] = std::unique_lock(mutex.m_places[i].mutex);
        }

    private:
        std::array<std::unique_lock<std::mutex>, 8> m_locks;
    };

private:
    static constexpr std::size_t s_places = 8;

    /// As far apart as cache lines are.
    struct Place {
        std::mutex mutex;
        char padding[64 - sizeof(std::mutex)] = {};
    };

    std::array<Place, s_places> m_places;
};
