#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "UniqueFd.h"
#include "Wakeup.h"

namespace mfd {

/// One thread that does the work of a driver, one piece after another: what is posted, in its order, then
/// timers that are due, then watched descriptors that can be read. Owned by mfd::Driver. Any thread, unless
/// an operation says otherwise. An exception that leaves a piece of work is told, and the thread goes on.
class EventLoop {
public:
    using Work = std::function<void()>;
    using Milliseconds = std::chrono::milliseconds;
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Settings {
        std::string driverID;          ///< for the thread's name
        bool timeStandsStill = false;  ///< timers know the time of advance() alone
        std::size_t longest = 4096;    ///< how much may be posted and not yet begun
        /// What was done ("the timer"), and what it threw. Called on the loop's thread.
        std::function<void(const std::string& what, const std::string& reason)> onFailure = {};
    };

    /// A std::system_error says what the system does not give.
    explicit EventLoop(Settings settings);
    /// As stop() without patience.
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /// Starts the thread. Once. A std::system_error says that there is none.
    void start();
    /// Takes nothing more, does what was posted as long as the patience lasts, and waits for the thread,
    /// whose piece of work is never cut short. How much was left undone. Never called on the loop's thread.
    std::size_t stop(Milliseconds patience);

    /// Has this done on the loop's thread; what names it in a report of its failure. False when too much
    /// waits, or the loop stops.
    bool post(std::string what, Work work);

    /// A timer that comes once, or with a period again and again; its number, never 0. Where the thread was
    /// late by more than a period, the times missed are left out.
    unsigned startTimer(Milliseconds first, std::optional<Milliseconds> period, Work work);
    /// On the loop's thread the timer does not come any more; on another it may be coming right now.
    void cancelTimer(unsigned timer);

    /// Calls this whenever the descriptor can be read, has ended or has an error. The caller keeps it open
    /// until unwatch(). Empty, or the system's reason.
    std::string watch(int fd, Work work);
    /// As cancelTimer().
    void unwatch(int fd);

    /// The loop's thread alone, while time stands still: lets so much time pass, with each timer at its
    /// instant.
    void advance(Milliseconds time);
    TimePoint now() const;
    /// Whether stop() has been called: nothing more is taken. On any thread.
    bool isStopping() const;

private:
    struct Timer {
        TimePoint due;
        std::optional<Milliseconds> period;
        std::shared_ptr<const Work> pWork;
    };
    struct Watched {
        unsigned number = 0;
        std::shared_ptr<const Work> pWork;
    };

    void run();
    void runPosted();
    bool runTimer(TimePoint until);
    void runWatched(std::uint64_t place);
    int patience() const;
    bool takePosted(std::pair<std::string, Work>& piece);
    void perform(const std::string& what, const Work& work) const;

    const Settings m_settings;
    base::Wakeup m_wakeup;
    base::UniqueFd m_epoll;

    /// Guards what follows; held for moments, never during a piece of work.
    mutable std::mutex m_mutex;
    std::deque<std::pair<std::string, Work>> m_posted;
    std::map<unsigned, Timer> m_timers;
    std::set<std::pair<TimePoint, unsigned>> m_due;
    std::map<int, Watched> m_watched;
    unsigned m_lastNumber = 0;
    bool m_stopping = false;
    TimePoint m_standsAt;
    Milliseconds m_lastWork{};  ///< how long it goes on once it stops

    std::thread m_thread;
};

}  // namespace mfd
