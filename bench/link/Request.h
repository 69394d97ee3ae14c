#pragma once

#include <cstdint>

#include "Job.h"

/// What a workplace's process is asked to measure. Goes over a socket as it is.
struct Request {
    enum EKind {
        eUpdates,   ///< job, shared by the first so many drivers
        eFids,      ///< job.count FIDs from D00 to D01, with a parameter or without
        eTrips,     ///< job.count FIDs from D00 to D01 and back
        eStopped,   ///< job.count updates while the panel target stands still
        eReload,    ///< of D00
        eMemory,    ///< per driver
        eIdle,      ///< what the receiving threads use while nothing happens
        eShutdown,  ///< of everything; the last request
    };
    EKind kind = eUpdates;
    int round = 0;
    Job job;
    int drivers = 1;
    bool hasParameter = false;
    bool isSweep = false;  ///< the result is one of a series over sizes or drivers
};
