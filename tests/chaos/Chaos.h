#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ChaosHost.h"
#include "ChaosPlan.h"
#include "ChaosWorkplace.h"
#include "Holdings.h"
#include "Scoreboard.h"
#include "StateReader.h"
#include "Watcher.h"

/// The run: a host with its workplace under traffic, faults one at a time, faults at once, then quiet and the
/// judgment. Made and run by main.
class Chaos {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::chrono::seconds time;
        std::uint32_t seed = 0;
        std::filesystem::path output;  ///< directory for the steps and for what the hosts have written
    };

    Chaos(ChaosWorkplace& workplace, const Settings& settings);
    ~Chaos();
    Chaos(const Chaos&) = delete;
    Chaos& operator=(const Chaos&) = delete;

    /// Injects faults until the time is over. What it has come to is complete behind it.
    const Scoreboard& run();

private:
    std::shared_ptr<ChaosHost> host() const;
    /// Whether a host is up and all drivers answer.
    bool startHost();
    bool allServe();
    void killHost(Scoreboard::EPhase phase, const ChaosPlan::Step& step, bool isAlone);
    bool inject(Scoreboard::EPhase phase, const std::vector<ChaosPlan::Step>& steps);
    void endLifetime();
    Holdings holdings() const;

    void quieten();
    std::set<std::int32_t> talkersProcesses() const;
    bool areTalkersQuiet() const;
    void judgeMessages();
    void judgeStates();
    void endHost();
    void noteFindings();

    ChaosWorkplace& m_workplace;
    const Settings m_settings;
    ChaosPlan m_plan;
    Watcher m_watcher;
    mutable std::mutex m_mutex;
    std::shared_ptr<ChaosHost> m_pHost;
    std::optional<Holdings> m_before;
    Scoreboard m_board;
    std::ofstream m_steps;
    StateReader m_reader;
};
