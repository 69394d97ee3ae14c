#pragma once

#include <fstream>
#include <string>

/// The memory of this process as the kernel counts it, in KiB.
class ProcessMemory {
public:
    /// Every page that this process has in memory; a shared one, such as a queue's, counts whole.
    static double resident() { return field("/proc/self/smaps_rollup", "Rss:"); }
    /// A page that several processes share counts in parts.
    static double proportional() { return field("/proc/self/smaps_rollup", "Pss:"); }
    /// The most that was resident since the last forgetPeak().
    static double peak() { return field("/proc/self/status", "VmHWM:"); }
    static void forgetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

private:
    static double field(const char* path, const std::string& name) {
        std::ifstream file(path);
        for (std::string word; file >> word;) {
            double value = 0;
            if (word == name && file >> value)
                return value;
        }
        return 0;
    }
};
