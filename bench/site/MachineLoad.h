#pragma once

#include <fstream>
#include <string>

/// How much of this machine's processors was used since the construction, by everybody on it.
class MachineLoad {
public:
    MachineLoad() : m_begin(now()) {}

    double seconds() const { return seconds(now()); }
    /// In processors: 2 where two are busy all the time.
    double busy() const {
        const Times end = now();
        return (end.all - end.idle - m_begin.all + m_begin.idle) / s_ticksPerSecond / seconds(end);
    }
    /// Likewise, what is left.
    double idle() const {
        const Times end = now();
        return (end.idle - m_begin.idle) / s_ticksPerSecond / seconds(end);
    }

private:
    struct Times {
        double all = 0;
        double idle = 0;
        double processors = 0;
    };
    static constexpr double s_ticksPerSecond = 100;

    double seconds(const Times& end) const {
        return (end.all - m_begin.all) / s_ticksPerSecond / end.processors;
    }
    static Times now() {
        std::ifstream file("/proc/stat");
        Times times;
        std::string name;
        // The line of all processors: user, nice, system, idle, iowait, irq, softirq, steal.
        file >> name;
        for (int field = 0; field < 8; ++field) {
            double ticks = 0;
            file >> ticks;
            times.all += ticks;
            if (field == 3 || field == 4)
                times.idle += ticks;
        }
        for (std::string word; file >> word;)
            times.processors += word.size() > 3 && word.starts_with("cpu") ? 1 : 0;
        return times;
    }

    Times m_begin;
};
