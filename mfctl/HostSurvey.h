#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ProcessFacts.h"

/// What there is of hosts on this machine: processes, sockets, queue directories, those of dead hosts as
/// well. What hosts answer is only a part of it, so it tells of hosts that hang, too. Main thread.
struct HostSurvey {
    struct Socket {
        std::string path;
        int pid = 0;              ///< who listens; 0: nobody, a dead host has left it
        std::string answer;       ///< the host's answer to GET /api/v1; empty where none came
        std::string silence;      ///< why none came
        std::string heldUp = {};  ///< which command holds it up, as it says itself; empty where none does
    };
    struct QueueFile {
        std::string name;
        std::uint64_t bytes = 0;
        std::chrono::seconds untouched{};
    };
    struct QueueDirectory {
        std::string path;
        bool isSeen = true;  ///< it is there, as far as this user can see
        bool isHeld =
            false;  ///< a host that runs has its lock; or it was given, and a process that runs uses it
        std::vector<QueueFile> files;
        std::vector<QueueFile> recording;  ///< its memory, which lies beside the queues
    };
    struct Process {
        ProcessFacts facts;
        /// Of one processor while it was looked at, in percent, thread by thread as in facts.
        std::vector<unsigned> load;
    };
    struct Host {
        Process process;
        std::vector<Socket> sockets;
        std::vector<Process> drivers;

        /// Whether one of its sockets answers.
        bool answers() const;
        /// Which command holds it up, as it says itself; empty where none does.
        std::string heldUp() const;
    };

    std::vector<Host> hosts;
    std::vector<Process> orphans;  ///< driver processes whose host is gone, or is not theirs
    std::vector<Socket> deadSockets;
    std::vector<QueueDirectory> queueDirectories;

    struct Settings {
        std::vector<std::string> sockets;  ///< the paths to look at
        std::string proc = "/proc";
        std::string sharedMemory = "/dev/shm";
        std::chrono::milliseconds sample{300};      ///< how long threads are looked at
        std::chrono::milliseconds patience{2'000};  ///< with a host that does not answer
    };
    static HostSurvey take(const Settings& settings);

    /// What keeps a host or driver process from working, as far as the kernel tells; empty where nothing
    /// does.
    static std::string trouble(const Process& process);
    /// Whether all that runs is well, and nothing of dead hosts is left.
    bool isWell() const;
};
