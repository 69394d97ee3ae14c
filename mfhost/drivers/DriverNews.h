#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "DriverTable.h"
#include "FIDParameterList.h"

/// Tells the panel driver how the others are: the FID PANEL.DRIVER with id, state ("running", "hung", "ended"
/// or "parked") and, but for "running", cause. Sends on a thread of its own, so that a panel driver that
/// takes no messages holds up nobody else. Owned by Host where the workplace asks for it.
class DriverNews {
public:
    using Send = std::function<bool(const std::string& fid, const FIDParameterList& parameters)>;

    /// What waits beyond this number pushes out the oldest, with a line.
    static constexpr std::size_t s_capacity = 1000;

    explicit DriverNews(Send send);
    ~DriverNews();  ///< as stop()
    DriverNews(const DriverNews&) = delete;
    DriverNews& operator=(const DriverNews&) = delete;

    /// The panel driver has been loaded and knows nothing: it is told of all these, and of each change from
    /// now on. Command thread.
    void panelStarted(const std::vector<DriverTable::Driver>& drivers);
    /// As DriverTable::Follower.
    void changed(const DriverTable::Driver& driver);
    /// Nothing is sent when this has returned. Before the manager goes.
    void stop();

private:
    struct News {
        std::string state;
        std::string cause;
        std::uint64_t start = 0;  ///< of the instance that runs: another one is news
        auto operator<=>(const News& other) const = default;
    };

    static News newsOf(const DriverTable::Driver& driver);
    void tell(const DriverTable::Driver& driver);
    void run();

    const Send m_send;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isPanelThere = false;
    bool m_isLosing = false;
    bool m_stopping = false;
    std::map<std::string, News> m_told;
    std::deque<FIDParameterList> m_waiting;
    std::thread m_thread;
};
