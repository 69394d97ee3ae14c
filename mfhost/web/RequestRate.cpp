#include "RequestRate.h"

#include <algorithm>

namespace {

constexpr double s_kept = 0.2;

}  // namespace

RequestRate::RequestRate(unsigned perSecond, Clock::time_point now)
    : m_perSecond(perSecond), m_left(perSecond), m_filled(now) {}

bool RequestRate::take(bool isFavoured, Clock::time_point now) {
    const std::chrono::duration<double> passed = now - m_filled;
    m_filled = now;
    m_left = std::min(m_perSecond, m_left + passed.count() * m_perSecond);
    if (m_left < 1 + (isFavoured ? 0 : s_kept * m_perSecond))
        return false;
    m_left -= 1;
    return true;
}
