#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ChaosRun.h"
#include "FileMeddler.h"
#include "Intruder.h"
#include "KillPlan.h"
#include "ParkJudge.h"

/// Kills and stops of hosts, drivers and trials, in one life of a host after the other, with the workplace
/// file meddled with and another user interfering all the while, and an operator who parks drivers, takes
/// them back, reloads them and edits the file; then one whole life and the judgment. Made and run by main.
class Campaign {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::uint32_t strikes = 0;  ///< so many at least
        std::uint32_t seed = 0;
        std::filesystem::path output;  ///< directory for the steps and for what the hosts have written
    };

    /// The drivers of its workplace: few, so that a host starts soon.
    static std::vector<std::string> drivers() { return {"T1", "T2", "T6", "F1", "F7", "S3"}; }

    /// Without another user when there is none to be had.
    Campaign(ChaosWorkplace& workplace, Intruder* pIntruder, const Settings& settings);
    ~Campaign();
    Campaign(const Campaign&) = delete;
    Campaign& operator=(const Campaign&) = delete;

    const Scoreboard& run();

private:
    void live(const KillPlan::Life& life);
    /// Whether the host is up.
    bool start(const KillPlan::Life& life);
    bool startOnce(bool isWhole, const KillPlan::Strike* pStrike);
    void end(const KillPlan::Strike* pStrike);
    /// False when nobody was there to be struck.
    bool strike(const KillPlan::Strike& strike);
    std::pair<std::string, pid_t> findDriver(const std::string& target) const;
    bool strikeHost(const KillPlan::Strike& strike);
    bool strikeDriver(const KillPlan::Strike& strike);
    bool strikeTrial(const KillPlan::Strike& strike);
    void wish(const KillPlan::Wish& wish);
    std::set<std::string> marks() const;
    void judgeMarks();
    std::vector<std::string> askedFor() const;
    void insistOnWishes();
    void judgeRoll();
    void judgeStart();
    void reloadMissing(bool withProcesses);
    void bury();
    void pointIntruderAt(pid_t host);
    void expectOf(const std::string& driverID, bool wasStopped);
    std::shared_ptr<ChaosHost> host() const { return m_run.host(); }

    const Settings m_settings;
    KillPlan m_plan;
    ChaosRun m_run;
    Intruder* const m_pIntruder;
    std::unique_ptr<FileMeddler> m_pMeddler;
    ParkJudge m_parkJudge;
    std::set<std::string> m_parked;  ///< as was asked for last
    std::set<std::string> m_edited;  ///< in the life of this host, by taking it out or putting it in
    std::ofstream m_steps;
    std::uint32_t m_struck = 0;
    std::vector<std::thread> m_continuers;
};
