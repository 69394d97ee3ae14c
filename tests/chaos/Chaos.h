#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <vector>

#include "ChaosPlan.h"
#include "ChaosRun.h"

/// Faults one at a time, then faults at once, then quiet and the judgment. Made and run by main.
class Chaos {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::chrono::seconds time;
        std::uint32_t seed = 0;
        std::vector<ChaosPlan::EKind> kinds;
        std::filesystem::path output;  ///< directory for the steps and for what the hosts have written
    };

    Chaos(ChaosWorkplace& workplace, const Settings& settings);
    Chaos(const Chaos&) = delete;
    Chaos& operator=(const Chaos&) = delete;

    /// Injects faults until the time is over. What it has come to is complete afterwards.
    const Scoreboard& run();

private:
    void killHost(Scoreboard::EPhase phase, const ChaosPlan::Step& step, bool isAlone);
    bool inject(Scoreboard::EPhase phase, const std::vector<ChaosPlan::Step>& steps);
    bool haveAllCome() const;

    const Settings m_settings;
    ChaosPlan m_plan;
    ChaosRun m_run;
    std::set<ChaosPlan::EKind> m_come;
    std::ofstream m_steps;
};
