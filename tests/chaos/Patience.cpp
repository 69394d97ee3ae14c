#include "Patience.h"

#include <algorithm>

using namespace std::chrono_literals;

std::atomic<unsigned int> Patience::s_standstills = 0;

bool Patience::isOver() {
    const auto now = Clock::now();
    const auto passed = now - m_asked;
    m_asked = now;
    if (passed > 3s)
        ++s_standstills;
    m_left -= std::min<Clock::duration>(passed, 1s);
    return m_left <= Clock::duration::zero();
}
