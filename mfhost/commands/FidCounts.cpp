#include "FidCounts.h"

void FidCounts::add(const std::string& driverID, const FidOutcome& outcome) {
    const bool isNobodys = outcome.reason == EFidReason::NoSuchDriver;
    const std::string what =
        outcome.reason == EFidReason::None ? inWords(outcome.stage) : inWords(outcome.reason);
    const std::lock_guard lock(m_mutex);
    ++m_counts[{isNobodys ? std::string() : driverID, what}];
}

std::vector<FidCounts::Count> FidCounts::counts() const {
    std::vector<Count> counts;
    const std::lock_guard lock(m_mutex);
    for (const auto& [key, fids] : m_counts)
        counts.push_back({key.first, key.second, fids});
    return counts;
}
