#pragma once

#include <algorithm>
#include <chrono>
#include <cstdlib>

/// How many rounds an endurance test makes: MFD_ROUNDS, which `./dev soak` sets; else so many.
inline int rounds(int few) {
    const char* pSetting = std::getenv("MFD_ROUNDS");
    return std::max(1, pSetting ? std::atoi(pSetting) : few);
}

/// The same; else few, and fewer still under a sanitizer, where each takes several times as long.
inline int rounds() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr int few = 5;
#else
    constexpr int few = 10;
#endif
    return rounds(few);
}

/// As many rounds as a test is to make, but at least one, and fewer where they take long: two threads that
/// are to meet at an instruction seldom do while others have the processors.
class Rounds {
public:
    Rounds(int rounds, std::chrono::milliseconds most) : m_left(rounds), m_end(Clock::now() + most) {}

    bool goOn() {
        if (m_left <= 0 || (m_hasBegun && Clock::now() >= m_end))
            return false;
        m_hasBegun = true;
        --m_left;
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;

    int m_left;
    const Clock::time_point m_end;
    bool m_hasBegun = false;
};
