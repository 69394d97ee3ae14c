#pragma once

#include <array>
#include <cstddef>
#include <mutex>

#include "MDMThreadPlace.h"

/// Guards data that many threads read for an instant and that seldom changes. A reader locks the mutex of its
/// place, a writer those of all places, so that readers in different places share no cache line.
class MDMReadersMutex {
public:
    class Reader {
    public:
        explicit Reader(MDMReadersMutex& mutex) : m_lock(mutex.m_places[MDMThreadPlace::current()].mutex) {}

    private:
        std::lock_guard<std::mutex> m_lock;
    };

    class Writer {
    public:
        explicit Writer(MDMReadersMutex& mutex) {
            for (std::size_t i = 0; i < m_locks.size(); ++i)
                m_locks[i] = std::unique_lock(mutex.m_places[i].mutex);
        }

    private:
        std::array<std::unique_lock<std::mutex>, MDMThreadPlace::s_places> m_locks;
    };

private:
    struct Place {
        std::mutex mutex;
        char padding[MDMThreadPlace::s_distance - sizeof(std::mutex)] = {};
    };

    std::array<Place, MDMThreadPlace::s_places> m_places;
};
