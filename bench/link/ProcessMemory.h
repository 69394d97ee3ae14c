#pragma once

#include <sys/types.h>

#include <fstream>
#include <string>

/// The memory of a process as the kernel counts it, in KiB; of this one for 0. What has ended meanwhile has
/// none.
class ProcessMemory {
public:
    /// Every page that the process has in memory; a shared one, such as a queue's, counts whole.
    static double resident(pid_t pid = 0) { return field(pid, "smaps_rollup", "Rss:"); }
    /// A page that several processes share counts in parts.
    static double proportional(pid_t pid = 0) { return field(pid, "smaps_rollup", "Pss:"); }
    /// The pages that belong to no file and to nobody else: neither the queues' nor a program's.
    static double own(pid_t pid = 0) { return field(pid, "status", "RssAnon:"); }

private:
    static double field(pid_t pid, const std::string& name, const std::string& wanted) {
        std::ifstream file("/proc/" + (pid == 0 ? "self" : std::to_string(pid)) + "/" + name);
        for (std::string word; file >> word;) {
            double value = 0;
            if (word == wanted && file >> value)
                return value;
        }
        return 0;
    }
};
