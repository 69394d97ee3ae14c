#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <random>
#include <thread>

#include "ChaosWorkplace.h"

/// Rewrites, breaks and puts back the workplace file all the while, on a thread of its own. Owned by
/// Campaign.
class FileMeddler {
public:
    FileMeddler(ChaosWorkplace& workplace, std::uint32_t seed);
    ~FileMeddler();  ///< puts the file back
    FileMeddler(const FileMeddler&) = delete;
    FileMeddler& operator=(const FileMeddler&) = delete;

    /// While it lives, the file is whole and nobody touches it.
    class Rest {
    public:
        explicit Rest(FileMeddler& meddler) : m_lock(meddler.m_mutex) { meddler.m_workplace.restore(); }
        Rest(const Rest&) = delete;
        Rest& operator=(const Rest&) = delete;

    private:
        const std::lock_guard<std::mutex> m_lock;
    };

    /// How often the file was written and was broken.
    std::uint64_t writes() const { return m_writes; }
    std::uint64_t breaks() const { return m_breaks; }

private:
    void run();
    bool wait(std::uint32_t milliseconds);
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random()) % limit; }

    ChaosWorkplace& m_workplace;
    std::mt19937 m_random;
    std::mutex m_mutex;  ///< of who has the file
    std::mutex m_stopMutex;
    std::condition_variable m_changed;
    bool m_isStopping = false;
    std::atomic<std::uint64_t> m_writes = 0;
    std::atomic<std::uint64_t> m_breaks = 0;
    std::thread m_thread;
};
