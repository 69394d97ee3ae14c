#pragma once

#include <filesystem>

#include "ApiLoad.h"
#include "HostProgram.h"
#include "Results.h"
#include "ValueReports.h"

/// Requests at the control socket of the real host program, a thousand a second on twenty connections, while
/// a driver process reports values without a break into the host's store. Each measurement starts a host of
/// its own, which is gone afterwards. Used by the measuring process's only thread.
class HostRequests {
public:
    explicit HostRequests(const Results& results) : m_results(results) {}

    /// What a value costs the thread that receives it, with requests and without them by turns, so many
    /// pairs; writes a result for each. A job takes so many seconds at least.
    void measureLoss(const std::filesystem::path& directory, int pairs, double seconds, int round) const;

    /// How the host's own memory grows under FIDs that it sends and remembers: in the time in which it comes
    /// to remember as many as it does of one user, and after that. Both in seconds.
    struct Times {
        double first = 6;
        double then = 10;
    };
    void measureMemory(const std::filesystem::path& directory, const Times& times, int round) const;

private:
    void measureValues(const HostProgram& host, const ValueReports& reports, bool isLoaded, int pair,
                       double seconds, int round) const;

    const Results& m_results;
};
