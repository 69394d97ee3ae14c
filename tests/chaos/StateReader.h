#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ChaosHost.h"
#include "Watcher.h"

/// Asks the host for its state again and again, and at once when a process has died, and judges whether a
/// value of what was known to be dead before the question is shown as live. Owned by Chaos, with a thread of
/// its own.
class StateReader {
public:
    using Clock = std::chrono::steady_clock;
    using CurrentHost = std::function<std::shared_ptr<ChaosHost>()>;

    StateReader(Watcher& watcher, CurrentHost host);
    ~StateReader();
    StateReader(const StateReader&) = delete;
    StateReader& operator=(const StateReader&) = delete;

    /// A process of that driver is dead and the host has no newer one yet: what has been shown of the driver
    /// so far is its.
    void died(const std::string& driverID, std::uint32_t instance, std::uint32_t ping);

    /// Asks now for the numbers and answers of all drivers and waits for what is listed. Any thread.
    std::optional<Watcher::Reply> ask();

    /// How long values of the dead were shown as live.
    std::chrono::milliseconds shownLive() const;
    std::vector<std::string> findings() const;
    std::uint64_t replies() const;
    std::uint64_t judgedDeaths() const;

private:
    struct Death {
        Clock::time_point when;
        std::uint32_t instance = 0;
        std::uint32_t ping = 0;
        std::chrono::milliseconds shownLive{0};
        bool isJudged = false;
    };

    void run();
    void judge(const Watcher::Reply& reply, const std::map<std::string, Death>& known);

    Watcher& m_watcher;
    const CurrentHost m_host;
    mutable std::mutex m_mutex;
    std::mutex m_askMutex;
    std::condition_variable m_changed;
    bool m_isStopping = false;
    bool m_isAsked = false;
    std::uint32_t m_mark = 0;
    std::uint64_t m_replies = 0;
    std::uint64_t m_judgedDeaths = 0;
    std::map<std::string, Death> m_deaths;  ///< the last of each driver
    std::chrono::milliseconds m_shownLive{0};
    std::vector<std::string> m_findings;
    std::thread m_thread;
};
