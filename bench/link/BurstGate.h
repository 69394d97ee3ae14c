#pragma once

#include <cstdint>
#include <string>

#include "SharedSemaphore.h"

/// Lets a sending process have two bursts under way and no more: each burst takes a place, and the receiver
/// gives it back when the whole burst is there.
class BurstGate {
public:
    static constexpr std::uint64_t s_size = 100;  ///< updates in a burst
    static constexpr unsigned int s_underWay = 2;

    /// Whoever comes first makes the file; the other process opens it afterwards.
    explicit BurstGate(const std::string& file) : m_places(file, s_underWay) {}

    static bool isBurstEnd(std::uint64_t number) { return number % s_size == s_size - 1; }

    /// The sender's, before each update: waits for a place when the update begins a burst.
    void pass(std::uint64_t number) {
        if (number % s_size == 0)
            m_places.take();
    }
    /// The receiver's, after each update.
    void arrived(std::uint64_t number) {
        if (isBurstEnd(number))
            m_places.give();
    }

private:
    SharedSemaphore m_places;
};
