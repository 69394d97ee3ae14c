#pragma once

#include <cstdint>

#include "Job.h"

/// What a workplace's process is asked to measure. Goes over a socket as it is.
struct Request {
    enum EKind {
        eUpdates,   ///< of that job's kind, from the first so many drivers to the panel target
        eRelayed,   ///< the same from D00 to D01, which acts as the panel
        eFids,      ///< FIDs from D00 to D01, with a parameter or without
        eTrips,     ///< FIDs from D00 to D01 and back
        eStopped,   ///< job.count updates while the panel target stands still
        eFull,      ///< the same with job.count FIDs from D00 to D01, each as long as a message can be
        eValues,    ///< updates from so many drivers, into whatever the panel is
        eMemory,    ///< per driver
        eIdle,      ///< what the receiving threads use while nothing happens
        eShutdown,  ///< of everything; the last request
    };
    EKind kind = eUpdates;
    int round = 0;
    Job job = {};
    int drivers = 1;
    double seconds = 0;  ///< how long a job takes at least that is measured
    bool hasParameter = false;
    bool isSeries = false;  ///< the result is one of a series over the number of drivers
};
