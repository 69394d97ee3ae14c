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

    /// The host's private memory may grow by this much between its start and its end: an allocator keeps
    /// what its threads have used at their worst moment, and each of a few dozen threads has its own share.
    static constexpr long s_memoryToleranceKb = 8192;
    /// A sanitizer keeps memory that was given back, to find who still uses it.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool s_isMemoryJudged = false;
#else
    static constexpr bool s_isMemoryJudged = true;
#endif

    struct Lifetime {
        Holdings before;
        Holdings after;
    };

    void add(EPhase phase, const Trial::Outcome& outcome);
    void addLifetime(const Lifetime& lifetime) {
        m_lifetimes.push_back(lifetime);
    }
    /// Something that may not be, in one line.
    void addFault(const std::string& text) {
        m_faults.push_back(text);
    }

    MessageJudge::Verdict messages;
    std::size_t statesJudged = 0;
    std::size_t statesWrong = 0;
    std::chrono::milliseconds shownLive{0};
    std::size_t deadShownLive = 0;
    std::uint64_t stateReplies = 0;
    std::uint64_t judgedDeaths = 0;
    std::uint64_t droppedLines = 0;
    std::size_t unexpectedEnds = 0;
    std::size_t sanitizerReports = 0;
    std::size_t leftProcesses = 0;
    std::size_t leftQueues = 0;
    std::size_t leftFiles = 0;
    std::optional<int> hostExit;

    /// How many faults have been injected.
    std::size_t faults() const {
        return m_outcomes.size();
    }
    /// What is not good, a line each.
    std::vector<std::string> complaints() const;
    void print(std::ostream& stream) const;

private:
    void printFaults(std::ostream& stream, EPhase phase) const;
    void printHoldings(std::ostream& stream) const;

    std::vector<std::pair<EPhase, Trial::Outcome>> m_outcomes;
    std::vector<Lifetime> m_lifetimes;
    std::vector<std::string> m_faults;
};
