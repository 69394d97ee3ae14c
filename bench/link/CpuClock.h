#pragma once

#include <sys/types.h>

#include <ctime>
#include <vector>

/// Processor time that processes have used together, all their threads, in user and kernel mode.
class CpuClock {
public:
    explicit CpuClock(std::vector<pid_t> processes)
        : m_processes(std::move(processes)), m_begin(used(m_processes)) {}

    /// Seconds since the construction. The processes must live still.
    double seconds() const { return used(m_processes) - m_begin; }

private:
    static double used(const std::vector<pid_t>& processes) {
        double sum = 0;
        for (const pid_t process : processes) {
            clockid_t clock{};
            timespec time{};
            if (clock_getcpuclockid(process, &clock) == 0 && clock_gettime(clock, &time) == 0)
                sum += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
        }
        return sum;
    }

    std::vector<pid_t> m_processes;
    double m_begin;
};
