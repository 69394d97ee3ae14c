#include "LinkMeter.h"

#include <cmath>
#include <cstddef>

namespace {

/// So many calls lie between the counts that are compared.
constexpr std::size_t s_span = 5;

}  // namespace

std::optional<LinkMeter::Rates> LinkMeter::take(Time now) {
    m_now.when = now;
    m_taken.push_back(m_now);
    if (m_taken.size() > s_span + 1)
        m_taken.pop_front();
    const Count& oldest = m_taken.front();
    const float seconds = std::chrono::duration<float>(now - oldest.when).count();
    if (seconds <= 0)
        return std::nullopt;
    const auto rate = [&](std::uint64_t since, std::uint64_t until) {
        return std::round(static_cast<float>(until - since) / seconds * 10) / 10;
    };
    return Rates{rate(oldest.in, m_now.in), rate(oldest.out, m_now.out)};
}
