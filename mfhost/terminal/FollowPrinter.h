#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "StateStore.h"

/// Prints each state change and event as a line: those of one driver in its order, those of several as they
/// came to the printer. Owned by Host. Drivers' threads only queue a line; a thread of its own writes, after
/// it has had the drivers' ends looked for: a value whose driver has ended by then is printed as stale. When
/// the reader is slower than the drivers, the oldest lines are dropped, and a line tells how many.
class FollowPrinter : public StateStore::Listener {
public:
    static constexpr std::size_t s_capacity = 10000;

    /// Prints what matches the shell pattern, everything for an empty one, to the descriptor. lookForEnds is
    /// called before each batch of lines, on the printer's thread, and tells the store of drivers that have
    /// ended by then. The patience is what is spent at the end on lines that are left.
    FollowPrinter(std::string glob, int fd, std::function<void()> lookForEnds = {},
                  std::chrono::milliseconds patience = std::chrono::seconds(1));
    /// Writes what is left, as long as the patience lasts.
    ~FollowPrinter() override;
    FollowPrinter(const FollowPrinter&) = delete;
    FollowPrinter& operator=(const FollowPrinter&) = delete;

    void valueChanged(const StateStore::Entry& entry) override;
    void valueUnset(const std::string& key) override;
    void eventTriggered(const StateStore::Event& event) override;
    void valuesStale(const std::string& driverID, const std::string& cause,
                     const std::vector<std::string>& keys) override;

private:
    struct Line {
        std::string text;
        std::string liveKey;  ///< of a line that tells a live value; else empty
    };

    void add(const std::string& text, const std::string& liveKey = {});
    void run();
    std::string takeBatch();
    bool write(const std::string& text);

    const std::string m_glob;
    const int m_fd;
    const std::function<void()> m_lookForEnds;
    const std::chrono::milliseconds m_patience;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Line> m_lines;
    std::uint64_t m_dropped = 0;
    bool m_stopping = false;
    bool m_isLosing = false;  ///< the thread's own: the last write failed
    std::chrono::steady_clock::time_point m_giveUp = std::chrono::steady_clock::time_point::max();
    std::thread m_thread;
};
