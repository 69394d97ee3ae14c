#include "JoinedGaps.h"

namespace stream {

void JoinedGaps::add(const StreamGap& gap) {
    const StreamGap before = m_sum;
    m_sum = gap;
    if (before.count == 0)
        return;
    m_sum.first = before.first;
    m_sum.from = before.from;
    m_sum.count += before.count;
}

JoinedGaps::EResult JoinedGaps::deliver() {
    m_gap = std::exchange(m_sum, StreamGap());
    return EResult::Gap;
}

JoinedGaps::EResult JoinedGaps::next(Clock::time_point now) {
    for (;;) {
        if (m_sum.count > 0 && !m_pReader->isInLappedStretch())
            return deliver();
        const EResult result = m_pReader->next(now);
        if (result == EResult::Gap) {
            if (m_pReader->isInLappedStretch() || m_sum.count > 0) {
                add(m_pReader->gap());
                continue;
            }
            m_gap = m_pReader->gap();
        } else if (result != EResult::Record && m_sum.count > 0) {
            return deliver();
        }
        return result;
    }
}

}  // namespace stream
