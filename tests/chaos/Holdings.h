#pragma once

#include <sys/types.h>

#include <string>

/// What a host and its drivers hold of the machine at one moment.
struct Holdings {
    long descriptors = 0;  ///< of the host
    long threads = 0;      ///< of the host
    long processes = 0;    ///< the host, its drivers, and whatever they have started
    long zombies = 0;      ///< of the host's children
    long queues = 0;       ///< files for them
    long temporary = 0;    ///< temporary files
    long memoryKb = 0;     ///< of the host alone: what is not of files or shared
    long sharedKb = 0;     ///< of the host: what has been used of its queues

    static Holdings of(pid_t host, const std::string& mark, const std::string& temporaryFiles);

    static long filesBelow(const std::string& directory);

    /// All but the memory, which no two moments have alike: that of the queues follows their fullest moment.
    bool isLike(const Holdings& other) const;
};
