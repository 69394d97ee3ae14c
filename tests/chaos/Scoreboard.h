#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Holdings.h"
#include "MessageJudge.h"
#include "Trial.h"

/// What a chaos run has come to, as a table, and whether it is good. Filled by Chaos, on its thread.
class Scoreboard {
public:
    enum class EPhase { Single, Several };

    /// Of what was sent and triggered at least so much must have been judged, of 100.
    static constexpr double s_judgedShare = 90;

    /// The host's private memory may grow by this much between its start and its end: an allocator keeps
    /// what its threads have used at their worst moment, and each of a few dozen threads has its own share.
    static constexpr long s_memoryToleranceKb = 8192;
    /// A sanitizer keeps memory that was given back, to find who still uses it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool s_isMemoryJudged = false;
#else
    static constexpr bool s_isMemoryJudged = true;
#endif

    /// Each time that a driver fills its room in the state store, so much more may be kept.
    static constexpr long s_filledRoomKb = 6144;

    struct Lifetime {
        Holdings before;
        Holdings after;
        long filledRooms = 0;

        long growthKb() const { return after.memoryKb - before.memoryKb - filledRooms * s_filledRoomKb; }
    };

    void add(EPhase phase, const Trial::Outcome& outcome);
    void addLifetime(const Lifetime& lifetime) {
        m_lifetimes.push_back(lifetime);
    }
    /// Something that may not be, in one line.
    void addFault(const std::string& text) {
        m_faults.push_back(text);
    }
    /// What explains a fault, in one line.
    void addFinding(const std::string& text) {
        m_findings.push_back(text);
    }
    const std::vector<std::string>& findings() const {
        return m_findings;
    }
    std::size_t faultCount() const {
        return m_faults.size();
    }
    /// A kill or stop of a campaign was done.
    void addStrike(const std::string& name) {
        ++m_strikes[name];
    }
    /// What an operator asked for meanwhile.
    void addWish(const std::string& name) {
        ++m_wishes[name];
    }
    /// How often exactly those ran that file and marks asked for.
    std::uint64_t rollsJudged = 0;
    /// Whether enough must have been judged; not where hosts and drivers live for moments only.
    void demandShares(bool isDemanded) {
        m_areSharesDemanded = isDemanded;
    }
    /// These kinds of faults are to be injected at least once.
    void setPlanned(const std::vector<ChaosPlan::EKind>& kinds) {
        m_planned = kinds;
    }

    MessageJudge::Verdict messages;
    std::size_t statesJudged = 0;
    std::size_t statesWrong = 0;
    std::chrono::milliseconds shownLive{0};
    std::uint64_t mutesShownLive = 0;
    std::size_t deadShownLive = 0;
    std::uint64_t stateReplies = 0;
    std::uint64_t unanswered = 0;  ///< questions at the console
    std::uint64_t untold = 0;      ///< of them those that waited long without a line that says why
    std::chrono::milliseconds longestWait{0};
    std::uint64_t judgedDeaths = 0;
    std::uint64_t droppedLines = 0;
    std::size_t unexpectedEnds = 0;
    std::size_t falseVerdicts = 0;
    std::size_t sanitizerReports = 0;
    std::vector<std::string> left;
    std::uint64_t fileWrites = 0;  ///< of the workplace file, meanwhile
    std::uint64_t fileBreaks = 0;  ///< of them those that broke it
    std::uint64_t attempts = 0;    ///< of another user
    std::vector<std::string> intrusions;
    std::optional<int> hostExit;

    /// How many faults have been injected.
    std::size_t faults() const {
        return m_outcomes.size();
    }
    /// Those of them that were really injected.
    std::size_t struck() const;
    /// What is not good, a line each.
    std::vector<std::string> complaints() const;
    void print(std::ostream& stream) const;

private:
    void printFaults(std::ostream& stream, EPhase phase) const;
    void printStrikes(std::ostream& stream) const;
    void printHoldings(std::ostream& stream) const;

    std::vector<std::pair<EPhase, Trial::Outcome>> m_outcomes;
    std::vector<Lifetime> m_lifetimes;
    std::vector<std::string> m_faults;
    std::vector<std::string> m_findings;
    std::vector<ChaosPlan::EKind> m_planned;
    std::map<std::string, std::uint64_t> m_strikes;
    std::map<std::string, std::uint64_t> m_wishes;
    bool m_areSharesDemanded = true;
};
