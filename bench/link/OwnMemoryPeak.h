#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

#include "ProcessMemory.h"

/// The most memory of its own that this process had while the object lives, in KiB: a thread looks every few
/// milliseconds.
class OwnMemoryPeak {
public:
    OwnMemoryPeak() : m_thread([this](const std::stop_token& stop) { watch(stop); }) {}

    /// Ends the watch.
    double end() {
        m_thread.request_stop();
        m_thread.join();
        return std::max(m_peak, ProcessMemory::own());
    }

private:
    void watch(const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            m_peak = std::max(m_peak, ProcessMemory::own());
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

    double m_peak = 0;  ///< the thread's until it has ended
    std::jthread m_thread;
};
