#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ChaosHost.h"
#include "ChaosWorkplace.h"
#include "Holdings.h"
#include "Leftovers.h"
#include "Patience.h"
#include "Scoreboard.h"
#include "StateReader.h"
#include "Watcher.h"

/// A host with its workplace, all that watches it, and the judgment at the end. Owned by Chaos or Campaign;
/// one thread but for host().
class ChaosRun {
public:
    using Clock = std::chrono::steady_clock;

    /// For a workplace to be started on a machine as busy as this.
    static constexpr std::chrono::seconds startPatience{90};

    /// What the hosts write goes to a file in that directory.
    ChaosRun(ChaosWorkplace& workplace, const std::filesystem::path& output);
    ~ChaosRun();
    ChaosRun(const ChaosRun&) = delete;
    ChaosRun& operator=(const ChaosRun&) = delete;

    ChaosWorkplace& workplace() const { return m_workplace; }
    Watcher& watcher() { return m_watcher; }
    StateReader& reader() { return m_reader; }
    Scoreboard& board() { return m_board; }
    /// The host that runs; null between two.
    std::shared_ptr<ChaosHost> host() const;

    /// Makes a host process without waiting for anything.
    void launchHost();
    /// Whether a host is up and all drivers answer.
    bool startHost();
    /// Whether all drivers answer in time, or these alone.
    bool allServe() { return doServe(m_workplace.drivers()); }
    bool doServe(const std::vector<std::string>& drivers);
    /// Lets go of a host that has ended or been killed. False when it has not ended, or what it has started
    /// has not, but for what is stopped.
    bool forgetHost();
    /// Holds what the host has against what it had at its start.
    void endLifetime();
    void forgetLifetime() { m_before.reset(); }
    /// A driver has filled its room in the host's state store.
    void noteFilledRoom() { ++m_filledRooms; }

    /// Whether all drivers serve at the end; then waits for silence, judges and ends the host.
    bool endInOrder();
    /// What has been found meanwhile, to that file.
    void noteFindings(const std::filesystem::path& file);

    /// Looks again and again.
    template <class Condition>
    static bool eventually(std::chrono::milliseconds patience, Condition condition) {
        for (Patience left(patience); !left.isOver();
             std::this_thread::sleep_for(std::chrono::milliseconds(20)))
            if (condition())
                return true;
        return condition();
    }

private:
    Holdings holdings() const;
    Leftovers leftovers() const;
    void quieten();
    std::set<std::int32_t> talkersProcesses() const;
    bool areTalkersQuiet() const;
    void judgeMessages();
    void judgeStates();
    void judgeList();
    void endHost();

    ChaosWorkplace& m_workplace;
    const std::filesystem::path m_output;
    Watcher m_watcher;
    mutable std::mutex m_mutex;
    std::shared_ptr<ChaosHost> m_pHost;
    std::optional<Holdings> m_before;
    long m_filledRooms = 0;  ///< in the life of this host
    /// With the first host up: what it makes stays for the next ones.
    std::optional<Leftovers> m_made;
    Scoreboard m_board;
    StateReader m_reader;
};
