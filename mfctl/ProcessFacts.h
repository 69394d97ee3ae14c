#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What the kernel tells of a process and its threads, as far as this user may know it. Reading it neither
/// stops nor changes the process. Any thread.
struct ProcessFacts {
    struct Thread {
        int id = 0;
        std::string name;
        char state = '?';     ///< as in /proc: R, S, D, T, t, Z ...
        std::string waitsIn;  ///< the kernel's function; empty where it is not told
        std::uint64_t cpuTicks = 0;
        std::string kernelStack;  ///< for root alone
    };

    int pid = 0;
    int parent = 0;
    std::string name;
    char state = '?';
    unsigned user = 0;
    std::string program;                          ///< path of its file; empty where it is not told
    std::string directory;                        ///< the working directory
    std::vector<std::string> command;             ///< its command line
    std::map<std::string, std::string> settings;  ///< the variables MFD_* that it was started with
    std::chrono::seconds age{};
    std::uint64_t memoryKb = 0;       ///< resident
    std::size_t descriptors = 0;      ///< open ones
    std::vector<std::string> queues;  ///< files below /dev/shm or MFD_QUEUE_DIR that it has mapped
    std::vector<std::string> rings;   ///< files there that are the memory of a recording
    std::vector<Thread> threads;

    /// Nothing when there is no such process.
    static std::optional<ProcessFacts> read(int pid, const std::string& proc = "/proc");
    /// All that there are, by number.
    static std::vector<int> all(const std::string& proc = "/proc");

    /// The driver that the process serves, from its title; empty where it serves none.
    std::string driverID() const;
    /// The name of its program's file, or its own where that is not told.
    std::string programName() const;
};

/// "sleeps", "is stopped" and so on; for a letter of /proc.
const char* stateInWords(char state);
