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

    void updates(const UpdatePeerKind& kind, const Job& job, int round, bool isSweep) const;
    void trips(const TripPeerKind& kind, unsigned int trips, int cores, int round) const;

private:
    std::string m_directory;
    const Results& m_results;
};
