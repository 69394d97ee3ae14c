#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

/// The FIDs that completion can offer: those that were sent from the console, and those that a driver has
/// named in its answer to one that it did not know. Owned by CommandShell. Any thread.
class FidMemory {
public:
    /// Of more than these the one that was learned first is forgotten.
    static constexpr std::size_t s_capacity = 1000;

    void add(const std::string& fid);
    /// Learns from a line of the log, `SYS: unknown FID "DANCE"; known are FORWARD, MARK`, what there is and
    /// what there is not.
    void learn(const std::string& logLine);

    /// In byte order, those that begin with the prefix.
    std::vector<std::string> fids(const std::string& prefix) const;

private:
    void forget(const std::string& fid);

    mutable std::mutex m_mutex;
    std::deque<std::string> m_fids;
};
