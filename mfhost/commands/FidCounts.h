#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "FidOutcome.h"

/// How many FIDs were sent from outside, and what became of them when their send was over. Owned by Host;
/// told by the senders and the command thread, asked by the API's. Any thread.
class FidCounts {
public:
    struct Count {
        std::string driverID;  ///< empty for all that named no driver of the workplace
        std::string outcome;   ///< why it did not arrive, else how far it came; as inWords() has both
        std::uint64_t fids = 0;
    };

    FidCounts() = default;
    FidCounts(const FidCounts&) = delete;
    FidCounts& operator=(const FidCounts&) = delete;

    /// driverID is one of the workplace or empty, so that there are no more counts than that.
    void add(const std::string& driverID, const FidOutcome& outcome);
    /// In byte order of driver and outcome, those that there were.
    std::vector<Count> counts() const;

private:
    mutable std::mutex m_mutex;
    std::map<std::pair<std::string, std::string>, std::uint64_t> m_counts;
};
