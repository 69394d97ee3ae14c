#pragma once

#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "DriverFamilies.h"
#include "ProcessEnd.h"
#include "StackDump.h"
#include "UniqueFd.h"
#include "sal/Process.h"

/// The driver processes that the host has started and that have not been collected: their descriptors, what
/// they leave behind, and what the supervisor notes of them. One epoll finds those that have ended, however
/// many there are. Owned by ProcessSupervisor; any thread.
class ProcessTable {
public:
    using Clock = std::chrono::steady_clock;

    struct Process {
        std::string driverID;
        int pid = 0;
        base::UniqueFd pidFd;
        Clock::time_point started;
        std::optional<Clock::time_point> terminated = {};
        bool isKilled = false;
        std::string hang = {};  ///< how it hangs or has lost a queue; empty while it does not
        std::unique_ptr<StackDump> pStacks = nullptr;
        int crashSignal = 0;  ///< of which it is dying, once it has said so; it waits until its stack is read
        std::optional<Clock::time_point> replaced =
            {};                    ///< when a newer one of its driver began, or it was unloaded
        bool isRestart = false;    ///< the host has started it by itself
        bool hasAttached = false;  ///< seen to have claimed its input queue
        bool isSaidLate = false;
        bool isWatched = true;  ///< by the epoll; one for which that had no room is asked each time

        /// Nothing happens to one that is gone.
        void signal(int number) const;
    };
    struct Ended {
        Process process;
        ProcessEnd end;
    };

    /// The processes, while no other thread adds one, takes one out or changes one.
    class Locked {
    public:
        Locked(std::mutex& mutex, std::list<Process>& processes) : m_lock(mutex), m_processes(processes) {}
        auto begin() const { return m_processes.begin(); }
        auto end() const { return m_processes.end(); }
        bool empty() const { return m_processes.empty(); }

    private:
        const std::unique_lock<std::mutex> m_lock;
        std::list<Process>& m_processes;
    };

    ProcessTable();
    ProcessTable(const ProcessTable&) = delete;
    ProcessTable& operator=(const ProcessTable&) = delete;

    /// Takes over the process with its descriptor. Earlier ones of its driver are replaced by it.
    void add(const std::string& driverID, const sal::Process::Started& process, bool isRestart);

    /// Collects those that have ended by now, with what they have left behind: one system call where there
    /// are none. One that a debugger holds is left for later.
    std::vector<Ended> takeEnded();
    /// Readable when a process has ended.
    int fd() const { return m_epoll.get(); }
    /// Whether one has ended that could not be collected, which keeps the descriptor readable.
    bool isOneHeld() const;

    Locked lock() { return {m_mutex, m_processes}; }
    /// Those taken out last may still be being told of.
    void waitUntilEmpty();

    /// Notes what the processes have started. Now and then; looks once a second at most.
    void lookAtFamilies() { m_families.look(); }
    /// Ends what the process has started, before it is collected.
    void endFamily(int pid) { m_families.end(pid); }

private:
    std::vector<int> findEnded();

    const base::UniqueFd m_epoll;
    DriverFamilies m_families;
    mutable std::mutex m_mutex;
    std::condition_variable m_empty;
    std::list<Process> m_processes;
    bool m_isOneHeld = false;
    bool m_hasUnwatched = false;
};
