#pragma once

#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <vector>

/// Whom the next kill or stop befalls, and when, and what an operator asks for between them: the same lives
/// of hosts for the same seed, without end.
/// Owned by Campaign; one thread.
class KillPlan {
public:
    enum class EWhat { Host, Driver, Trial };
    enum class EWhen { Start, Run, Reload, End };

    /// What the operator asks for just before a strike, which may come in the middle of it.
    enum class EWish { Park, Unpark, Reload, TakeOut, PutIn };
    struct Wish {
        EWish what;
        std::string target;

        /// As the scoreboard counts it: "driver parked".
        std::string name() const;
    };

    struct Strike {
        EWhat what;
        EWhen when;
        bool isKill;               ///< else a stop
        std::string target;        ///< the driver; whose reload it is, for a host or a trial at a reload
        std::uint32_t delayMs;     ///< after the start, the reload or the quit
        std::uint32_t durationMs;  ///< of a stop; 0: nobody continues it
        std::vector<Wish> wishes = {};

        /// As the scoreboard counts it: "driver killed at a reload".
        std::string name() const;
        /// Nothing comes after it.
        bool endsLife() const { return what == EWhat::Host && isKill; }
    };
    /// Of one host: strikes in their order, then its end, unless it was killed.
    struct Life {
        std::vector<Strike> strikes;
        bool isFileMeddledAtStart = false;
    };

    /// The IDs of drivers in processes of their own, and of the one whose module is tried out.
    /// Wishes concern all drivers but that one.
    KillPlan(std::uint32_t seed, std::vector<std::string> processes, std::string triedOut,
             std::vector<std::string> all);

    Life next();

private:
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random()) % limit; }
    Strike strike(EWhen when);
    std::vector<Wish> wishes();
    Wish wish();

    std::mt19937 m_random;
    const std::vector<std::string> m_processes;
    const std::string m_triedOut;
    const std::vector<std::string> m_all;
    std::set<std::string> m_parked;    ///< as far as all wishes came true
    std::set<std::string> m_takenOut;  ///< of the workplace file
};
