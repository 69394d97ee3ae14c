#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "RollCall.h"
#include "Watcher.h"

/// Judges lists of the state: whether a value is shown as live that is of a process that was known to be dead
/// before the host was asked, or of a driver that owes an answer for too long. Owned by StateReader, which
/// serializes the calls.
class StateJudge {
public:
    using Clock = std::chrono::steady_clock;

    struct Death {
        Clock::time_point when;
        std::uint32_t instance = 0;
        std::uint32_t ping = 0;
        std::chrono::milliseconds shownLive{0};
        bool isJudged = false;
    };
    using Deaths = std::map<std::string, Death>;  ///< the last of each driver

    /// How long a driver may owe an answer before its values must be stale.
    explicit StateJudge(Clock::duration answerLimit) : m_answerLimit(answerLimit) {}

    /// A process of that driver is dead and the host has no newer one yet: what has been shown of the driver
    /// so far is its.
    void died(const std::string& driverID, const Death& death) { m_deaths[driverID] = death; }
    const Deaths& deaths() const { return m_deaths; }

    RollCall& rollCall() { return m_rollCall; }
    const RollCall& rollCall() const { return m_rollCall; }

    /// Judges what was listed, by the deaths that were known before it was asked for.
    void judge(const Watcher::Reply& reply, const Deaths& known);
    /// These drivers were asked for an answer with that number before the list. Who is not listed as live may
    /// not be there at all.
    void asked(const std::vector<std::string>& drivers, std::uint32_t number, const Watcher::Reply& reply);

    /// How long values of the dead were shown as live.
    std::chrono::milliseconds shownLive() const { return m_shownLive; }
    std::uint64_t judgedDeaths() const { return m_judgedDeaths; }
    /// How many times a driver was found to be mute and shown as live.
    std::uint64_t mutesShownLive() const { return m_mutesShownLive; }
    const std::vector<std::string>& findings() const { return m_findings; }

private:
    void judgeDead(const Watcher::Reply& reply, const Deaths& known);
    void judgeMute(const Watcher::Reply& reply);
    static std::set<std::string> liveIn(const Watcher::Reply& reply);

    const Clock::duration m_answerLimit;
    Deaths m_deaths;
    RollCall m_rollCall;
    std::uint64_t m_judgedDeaths = 0;
    std::uint64_t m_mutesShownLive = 0;
    std::chrono::milliseconds m_shownLive{0};
    std::vector<std::string> m_findings;
};
