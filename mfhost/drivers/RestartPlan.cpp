#include "RestartPlan.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace {

double anyShare() {
    thread_local std::minstd_rand t_generator(std::random_device{}());
    return std::uniform_real_distribution<double>(0, 1)(t_generator);
}

}  // namespace

std::optional<RestartPlan::Duration> RestartPlan::ended(Duration ran) {
    const bool wasHealthy = ran >= m_settings.healthyTime;
    if (wasHealthy)
        reset();
    if (m_settings.limit && m_tries >= *m_settings.limit)
        return std::nullopt;
    ++m_tries;
    if (wasHealthy)
        return Duration::zero();
    return nextDelay();
}

RestartPlan::Duration RestartPlan::nextDelay() {
    Duration delay = std::min(m_settings.firstDelay, m_settings.longestDelay);
    for (unsigned int i = 0; i < m_delays && delay < m_settings.longestDelay; ++i)
        delay = std::min(2 * delay, m_settings.longestDelay);
    ++m_delays;
    const double share = m_settings.random ? m_settings.random() : anyShare();
    const double factor = 1 + s_jitter * (2 * share - 1);
    return Duration(std::llround(static_cast<double>(delay.count()) * factor));
}
