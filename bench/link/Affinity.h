#pragma once

#include <sched.h>

/// Where a process may run. Its later threads and children inherit it.
class Affinity {
public:
    /// The first so many of the processors that this process may use.
    static void set(int cores) {
        cpu_set_t allowed;
        cpu_set_t chosen;
        CPU_ZERO(&chosen);
        if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
            return;
        for (int cpu = 0; cpu < CPU_SETSIZE && cores > 0; ++cpu) {
            if (CPU_ISSET(cpu, &allowed)) {
                CPU_SET(cpu, &chosen);
                --cores;
            }
        }
        sched_setaffinity(0, sizeof chosen, &chosen);
    }
};
