#include "Backoff.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::chrono::milliseconds s_first{500};
constexpr std::chrono::seconds s_longest{30};
/// A connection that has lasted so long was a good one.
constexpr std::chrono::seconds s_good{10};

}  // namespace

Backoff::Backoff(Random random) : m_random(std::move(random)), m_pause(s_first) {}

Backoff::Duration Backoff::begin() {
    const Duration pause = m_pause;
    m_pause = std::min<Duration>(pause * 2, s_longest);
    return pause / 2 + m_random(pause);
}

std::optional<Backoff::Duration> Backoff::lost(Duration lasted) {
    if (lasted < s_good)
        return std::nullopt;
    m_pause = s_first;
    return m_random(m_pause);
}
