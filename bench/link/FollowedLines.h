#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

/// Reads what a host with --follow prints, on a thread of its own, and counts the lines.
/// Everything else is called by the measuring thread.
class FollowedLines {
public:
    /// Reads no more than so many lines a second; 0 for all that come.
    FollowedLines(int fd, unsigned int linesPerSecond);
    ~FollowedLines();
    FollowedLines(const FollowedLines&) = delete;
    FollowedLines& operator=(const FollowedLines&) = delete;

    /// From now on lines that begin so are counted, and those that the host says it has dropped, up to so
    /// many.
    void expect(std::string beginning, std::uint64_t count);
    /// Until so many are counted. Throws when they do not come, or more. What follows holds afterwards.
    void wait();
    std::uint64_t printed() const { return m_printed; }
    std::int64_t last() const { return m_last; }  ///< when the last line was there, in nanoseconds

private:
    void run(const std::stop_token& stop);
    void take(std::string_view line);

    const int m_fd;
    const unsigned int m_linesPerSecond;
    std::mutex m_mutex;  ///< of everything that is counted
    std::condition_variable m_changed;
    std::string m_beginning;
    std::uint64_t m_expected = 0;
    std::uint64_t m_printed = 0;
    std::uint64_t m_dropped = 0;
    std::int64_t m_last = 0;
    std::jthread m_thread;
};
