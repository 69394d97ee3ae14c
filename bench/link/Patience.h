#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

/// Asks every few milliseconds until it is so. Throws when that takes longer than any measurement should.
template <class Condition>
void waitUntil(const std::string& what, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            throw std::runtime_error(what + ": not in time");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}
