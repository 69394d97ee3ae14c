#include "KillPlan.h"

#include <algorithm>
#include <utility>

namespace {

/// How long after the start, in the run, after a reload or a quit the strike comes at the latest.
constexpr std::uint32_t s_latestMs[] = {4000, 300, 1500, 1200};
constexpr std::uint32_t s_longestStopMs = 1500;
constexpr std::uint32_t s_fewestStrikes = 3;
constexpr std::uint32_t s_mostStrikes = 9;
constexpr std::uint32_t s_mostWishes = 3;
/// Somebody has to be left whom a strike can befall.
constexpr std::size_t s_mostParked = 2;
constexpr std::size_t s_mostTakenOut = 1;

}  // namespace

std::string KillPlan::Strike::name() const {
    static constexpr const char* s_whats[] = {"host", "driver", "trial"};
    static constexpr const char* s_whens[] = {"at the start", "in the run", "at a reload", "at the end"};
    return std::string(s_whats[static_cast<int>(what)]) + (isKill ? " killed " : " stopped ") +
           s_whens[static_cast<int>(when)];
}

std::string KillPlan::Wish::name() const {
    static constexpr const char* s_names[] = {"driver parked", "driver taken back from parking",
                                              "driver reloaded", "driver taken out of the file",
                                              "driver put into the file again"};
    return s_names[static_cast<int>(what)];
}

KillPlan::KillPlan(std::uint32_t seed, std::vector<std::string> processes, std::string triedOut,
                   std::vector<std::string> all)
    : m_random(seed),
      m_processes(std::move(processes)),
      m_triedOut(std::move(triedOut)),
      m_all(std::move(all)) {}

KillPlan::Wish KillPlan::wish() {
    const auto any = [this](const auto& drivers) {
        return *std::next(drivers.begin(), below(static_cast<std::uint32_t>(drivers.size())));
    };
    std::string target = any(m_all);
    while (target == m_triedOut)
        target = any(m_all);
    switch (below(4)) {
        case 0:
        case 1:
            if (m_parked.size() < s_mostParked && m_parked.insert(target).second)
                return {EWish::Park, target};
            target = any(m_parked);
            m_parked.erase(target);
            return {EWish::Unpark, target};
        case 2:
            if (m_takenOut.size() < s_mostTakenOut) {
                m_takenOut.insert(target);
                return {EWish::TakeOut, target};
            }
            target = *m_takenOut.begin();
            m_takenOut.clear();
            return {EWish::PutIn, target};
        default:
            return {EWish::Reload, target};
    }
}

std::vector<KillPlan::Wish> KillPlan::wishes() {
    std::vector<Wish> wishes;
    const std::uint32_t count = below(s_mostWishes + 1);
    for (std::uint32_t i = 0; i < count; ++i)
        wishes.push_back(wish());
    return wishes;
}

KillPlan::Strike KillPlan::strike(EWhen when) {
    Strike strike{EWhat::Driver, when, below(3) > 0, {}, 0, 0};
    const std::uint32_t drawn = below(8);
    const bool hasTrial = when == EWhen::Start || when == EWhen::Reload;
    // Each host's death costs a start, so the drivers get the most of it.
    if (drawn == 0 || (drawn == 1 && when == EWhen::End))
        strike.what = EWhat::Host;
    else if (drawn < 3 && hasTrial)
        strike.what = EWhat::Trial;
    strike.target = strike.what == EWhat::Trial
                        ? m_triedOut
                        : m_processes[below(static_cast<std::uint32_t>(m_processes.size()))];
    strike.delayMs = below(s_latestMs[static_cast<int>(when)]);
    strike.durationMs = 50 + below(s_longestStopMs);
    // A host is always continued: nobody else would do it.
    if (strike.what == EWhat::Driver && below(4) == 0)
        strike.durationMs = 0;
    return strike;
}

KillPlan::Life KillPlan::next() {
    Life life;
    life.isFileMeddledAtStart = below(4) == 0;
    if (below(2) == 0)
        life.strikes.push_back(strike(EWhen::Start));
    const std::uint32_t count = s_fewestStrikes + below(s_mostStrikes - s_fewestStrikes);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (!life.strikes.empty() && life.strikes.back().endsLife())
            return life;
        life.strikes.push_back(strike(below(3) == 0 ? EWhen::Reload : EWhen::Run));
        life.strikes.back().wishes = wishes();
    }
    if (!life.strikes.back().endsLife() && below(2) == 0)
        life.strikes.push_back(strike(EWhen::End));
    return life;
}
