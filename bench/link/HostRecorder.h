#pragma once

#include <filesystem>

#include "Results.h"

/// What recording costs the thread of the real host program that receives from a driver process. Each
/// measurement starts a host of its own, which is gone afterwards. Used by the measuring process's only
/// thread.
class HostRecorder {
public:
    explicit HostRecorder(const Results& results) : m_results(results) {}

    /// Values, events, FIDs to a driver process and to a driver in the host's process, and FIDs to a driver
    /// process that takes none before a burst is whole, by a host that records or one that does not; a result
    /// for each, which takes so many seconds at least.
    void measure(bool isRecorded, const std::filesystem::path& directory, int pair, double seconds,
                 int round) const;
    /// The same by a host that records, while so many follow all of it.
    void measureRead(int readers, const std::filesystem::path& directory, int pair, double seconds,
                     int round) const;
    /// The same by a host that records, with so many open pages of its web panel.
    void measureShown(int pages, const std::filesystem::path& directory, int pair, double seconds,
                      int round) const;

private:
    struct Run {
        const std::filesystem::path& directory;
        const char* work;
        const char* field;  ///< what the runs differ in, and its value
        int value = 0;
        bool isRecorded = true;
        int readers = 0;
        int pages = -1;  ///< below 0 there is no web port
    };
    void measure(const Run& run, int pair, double seconds, int round) const;

    const Results& m_results;
};
