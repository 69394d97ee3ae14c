#pragma once

#include <string>

#include "Job.h"
#include "Results.h"
#include "TripPeer.h"
#include "UpdatePeer.h"

/// Runs the ends of a peer in processes of their own and writes what was measured. Called while this process
/// has one thread; throws when an end fails or takes too long.
class PeerRun {
public:
    PeerRun(std::string directory, const Results& results);

    /// A job of that kind which takes so many seconds at least, after a warm-up.
    void updates(const UpdatePeerKind& kind, Job job, double seconds, int round) const;
    /// For so many seconds, after half of that as warm-up.
    void trips(const TripPeerKind& kind, double seconds, int cores, int round) const;

private:
    std::string m_directory;
    const Results& m_results;
};
