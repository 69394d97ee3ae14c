#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// Judges from samples which driver processes hang: those that take none of the messages that wait for them,
/// and those to which the host cannot send, since another sender does not leave their input queue. One that
/// computes while messages wait is given three times as long. Nothing is measured per message. Owned and
/// called by ProcessSupervisor, on its thread.
class HangDetector {
public:
    using Duration = std::chrono::nanoseconds;

    /// What a driver looked like at one moment.
    struct Sample {
        std::string driverID;
        int pid = 0;
        unsigned int standing = 0;   ///< messages in its input queue
        std::uint32_t received = 0;  ///< how many it has taken, modulo something
        std::uint64_t cpuTicks = 0;  ///< processor time that its process has used
        bool isRunnable = false;     ///< it computes, or waits for a processor to do so
        bool isTraced = false;       ///< a debugger is attached
        bool waitsForHost = false;   ///< its output queue is full
        bool holdsUpSender = false;  ///< a thread of the host has waited for room in its input queue
        /// A sender of the host has waited that long for another one to leave its input queue.
        Duration lockedFor{};
    };
    struct Verdict {
        std::string driverID;
        int pid = 0;
        unsigned int standing = 0;
        Duration stillFor{};
        bool usedCpu = false;
        bool isLocked = false;  ///< the host cannot send to it
    };

    /// A timeout of 0 finds nothing.
    explicit HangDetector(Duration timeout) : m_timeout(timeout) {}

    /// Takes the samples of all drivers at one moment. now is time on a clock that goes on while the machine
    /// sleeps: when it jumps, the supervisor was not watching and all begins anew. A driver that hangs is
    /// named each time; one that only waits for the host is not, as long as another one may be the cause.
    std::vector<Verdict> judge(const std::vector<Sample>& samples, Duration now);

private:
    void judgeLocks(const std::vector<Sample>& samples, Duration now, std::vector<Verdict>& hung);

    struct Watch {
        int pid = 0;
        std::uint32_t received = 0;
        std::uint64_t cpuTicks = 0;
        Duration stillSince{};
        Duration idleSince{};
    };

    const Duration m_timeout;
    Duration m_last{};
    std::map<std::string, Watch> m_watches;  ///< of those that leave messages standing
    std::map<int, Duration> m_locked;        ///< process ID -> since when its input queue was seen locked
};
