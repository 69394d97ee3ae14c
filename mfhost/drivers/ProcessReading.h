#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// What the kernel tells of a running process in its files under /proc. Any thread.
struct ProcessReading {
    std::uint64_t cpuTicks = 0;  ///< processor time used by all its threads
    bool isRunnable = false;     ///< its main thread computes or waits for a processor
    bool isTraced = false;       ///< a debugger is attached

    /// Nothing when there is no such process.
    static std::optional<ProcessReading> read(int pid);

    /// Whether it runs and has that thread.
    static bool hasThread(int pid, int thread);

    /// The same as read() from the texts of "stat" and "status".
    static std::optional<ProcessReading> parse(const std::string& stat, const std::string& status);
};
