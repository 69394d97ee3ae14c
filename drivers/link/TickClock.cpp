#include "TickClock.h"

linkpayload::Tick TickClock::next(Time now) {
    m_told.push_back(now);
    if (m_told.size() > s_kept)
        m_told.pop_front();
    return {m_boot, ++m_last};
}

std::optional<TickClock::Time::duration> TickClock::age(const linkpayload::Tick& tick, Time now) const {
    if (tick.boot != m_boot || tick.number > m_last || m_last - tick.number >= m_told.size())
        return std::nullopt;
    return now - m_told[m_told.size() - 1 - static_cast<std::size_t>(m_last - tick.number)];
}
