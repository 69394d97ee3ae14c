#pragma once

#include <chrono>
#include <thread>

/// How long a test waits for what must come before it calls it a hang. Nothing takes a fraction of it,
/// however busy the machine is; ctest's own limits lie above it.
constexpr std::chrono::seconds c_hangGuard{100};
/// The same for calls that count milliseconds.
constexpr int c_hangGuardMs = 100'000;

/// Looks until the condition holds; false when it does not before the hang guard.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds step = std::chrono::milliseconds(5)) {
    const auto end = std::chrono::steady_clock::now() + c_hangGuard;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(step);
    }
    return true;
}
