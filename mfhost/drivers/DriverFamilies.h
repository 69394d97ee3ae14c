#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sal/Process.h"
#include "sal/ProcessFamily.h"

/// What the driver processes have started themselves: it ends with them. Owned by ProcessSupervisor; any
/// thread. The children of drivers in the host's own process are those drivers' affair.
class DriverFamilies {
public:
    void add(const std::string& driverID, const sal::Process::Started& process);

    /// Notes what has left the processes' sessions, and ends what could not be looked for at the end of its
    /// process. Now and then; looks once a second at most.
    void look();

    /// Ends what the process has left behind, with one line, and forgets the process. Before it is collected.
    void end(int pid);

private:
    struct Family {
        std::string driverID;
        sal::ProcessFamily processes;
    };

    /// Whether all that there is could be seen.
    static bool end(int pid, Family& family);

    std::mutex m_mutex;
    std::map<int, Family> m_families;
    /// Of processes that have been collected, by the numbers that they had.
    std::vector<std::pair<int, Family>> m_unended;
    std::optional<std::chrono::steady_clock::time_point> m_looked;
};
