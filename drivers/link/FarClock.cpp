#include "FarClock.h"

#include <algorithm>

namespace {

/// As long as clocks that go differently do not come apart by what is shown.
constexpr std::chrono::minutes s_validity{1};
/// No age is longer: a stranger writes any time.
constexpr std::chrono::hours s_longestAge{24 * 365};

template <class Time>
std::chrono::milliseconds sinceEpoch(Time time) {
    return std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
}

}  // namespace

/// What was on its way for the shortest time is the best that is known; what has stood in a line that was
/// held up says least.
void FarClock::take(linkpayload::Time told, std::optional<Duration> delay, Time now) {
    const Sample sample{
        sinceEpoch(told) + sinceEpoch(Time(delay.value_or(Duration(0)) / 2)) - sinceEpoch(now),
        delay.value_or(Duration::max()), now};
    const bool isBetter = !m_best || sample.delay < m_best->delay ||
                          (sample.delay == m_best->delay && sample.ahead >= m_best->ahead);
    if (isBetter || now - m_best->when > s_validity)
        m_best = sample;
}

FarClock::Time FarClock::here(linkpayload::Time there, Time now) const {
    if (!m_best)
        return now;
    const Milliseconds age = sinceEpoch(now) + m_best->ahead - sinceEpoch(there);
    return now - std::clamp<Milliseconds>(age, Milliseconds(0), s_longestAge);
}
