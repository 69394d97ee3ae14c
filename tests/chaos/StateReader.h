#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ChaosHost.h"
#include "ConsoleWaits.h"
#include "StateJudge.h"
#include "Watcher.h"

/// Pings all drivers and asks the host for its state again and again, and at once when a process has died,
/// for StateJudge; and sees to it that the console answers in time and that whoever holds it up is named.
/// Owned by Chaos, with a thread of its own.
class StateReader {
public:
    using Clock = std::chrono::steady_clock;
    using CurrentHost = std::function<std::shared_ptr<ChaosHost>()>;

    /// While it lives, nobody asks the host anything: it is stopped, or nobody reads what it writes.
    class Pause {
    public:
        explicit Pause(StateReader& reader) : m_askLock(reader.m_askMutex) {}
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;

    private:
        const std::lock_guard<std::mutex> m_askLock;
    };

    StateReader(Watcher& watcher, CurrentHost host, std::vector<std::string> drivers,
                std::chrono::seconds answerLimit);
    ~StateReader();
    StateReader(const StateReader&) = delete;
    StateReader& operator=(const StateReader&) = delete;

    /// That process of the driver is dead. What was shown of the driver is its only as long as the host has
    /// no newer one.
    void processDied(const ChaosHost& host, const std::string& driverID, pid_t pid);

    /// Asks now for the numbers and answers of all drivers and waits for what is listed. Any thread.
    std::optional<Watcher::Reply> ask();

    std::chrono::milliseconds shownLive() const;
    std::uint64_t mutesShownLive() const;
    std::uint64_t judgedDeaths() const;
    std::vector<std::string> findings() const;
    std::uint64_t replies() const;
    ConsoleWaits waits() const;

private:
    void run();
    /// Types a ping for each driver that owes no answer, once in a while; who was asked, and with what.
    std::vector<std::string> callTheRoll(ChaosHost& host, std::uint32_t& ping);
    void forgetRollOfAnother(const std::shared_ptr<ChaosHost>& pHost);

    Watcher& m_watcher;
    const CurrentHost m_host;
    const std::vector<std::string> m_drivers;
    mutable std::mutex m_mutex;
    std::mutex m_askMutex;
    std::condition_variable m_changed;
    bool m_isStopping = false;
    bool m_isAsked = false;
    std::uint32_t m_mark = 0;
    std::uint64_t m_replies = 0;
    ConsoleWaits m_waits;
    StateJudge m_judge;
    // Of whoever asks.
    std::weak_ptr<ChaosHost> m_asked;
    unsigned int m_standstills = 0;
    Clock::time_point m_nextRoll;
    std::thread m_thread;
};
