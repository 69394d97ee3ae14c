#include "HangDetector.h"

#include <algorithm>
#include <utility>

std::vector<HangDetector::Verdict> HangDetector::judge(const std::vector<Sample>& samples, Duration now) {
    std::vector<Verdict> hung;
    if (m_timeout <= Duration::zero())
        return hung;
    if (now - m_last > m_timeout / 2) {
        m_watches.clear();
        m_locked.clear();
    }
    m_last = now;
    judgeLocks(samples, now, hung);

    std::map<std::string, Watch> watches;
    std::vector<const Sample*> candidates;
    bool isCauseKnown = false;
    for (const Sample& sample : samples) {
        if (sample.standing == 0 || sample.isTraced)
            continue;
        const auto before = m_watches.find(sample.driverID);
        const bool isStill = before != m_watches.end() && before->second.pid == sample.pid &&
                             before->second.received == sample.received;
        Watch& watch = watches[sample.driverID];
        watch = isStill ? before->second : Watch{sample.pid, sample.received, sample.cpuTicks, now, now};
        if (!isStill)
            continue;
        if (!sample.waitsForHost)
            isCauseKnown = true;
        if (watch.cpuTicks != sample.cpuTicks || sample.isRunnable)
            watch.idleSince = now;
        watch.cpuTicks = sample.cpuTicks;
        if (now - watch.idleSince >= m_timeout || now - watch.stillSince >= 3 * m_timeout)
            candidates.push_back(&sample);
    }
    m_watches = std::move(watches);

    const auto stillSince = [this](const Sample* pSample) {
        return m_watches.at(pSample->driverID).stillSince;
    };
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&](const Sample* a, const Sample* b) { return stillSince(a) < stillSince(b); });
    for (const Sample* pSample : candidates) {
        if (pSample->waitsForHost && (isCauseKnown || !pSample->holdsUpSender))
            continue;
        const Watch& watch = m_watches.at(pSample->driverID);
        hung.push_back({pSample->driverID, pSample->pid, pSample->standing, now - watch.stillSince,
                        now - watch.idleSince < m_timeout});
        if (!pSample->waitsForHost)
            continue;
        // Drivers that wait for each other in a ring: one end lets the others go on.
        for (const Sample* pOther : candidates) {
            if (pOther != pSample && pOther->waitsForHost)
                m_watches.erase(pOther->driverID);
        }
        break;
    }
    return hung;
}

/// A wait alone tells nothing: where the machine or the host stood still meanwhile, it only seems long.
void HangDetector::judgeLocks(const std::vector<Sample>& samples, Duration now, std::vector<Verdict>& hung) {
    std::map<int, Duration> locked;
    for (const Sample& sample : samples) {
        if (sample.lockedFor == Duration::zero() || sample.isTraced)
            continue;
        const auto before = m_locked.find(sample.pid);
        const Duration since = before != m_locked.end() ? before->second : now;
        locked.emplace(sample.pid, since);
        if (now - since >= m_timeout && sample.lockedFor >= m_timeout)
            hung.push_back({sample.driverID, sample.pid, sample.standing, sample.lockedFor, false, true});
    }
    m_locked = std::move(locked);
}
