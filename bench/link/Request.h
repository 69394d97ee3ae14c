#pragma once

#include <cstdint>

#include "Job.h"

/// What a workplace's process is asked to measure. Goes over a socket as it is.
struct Request {
    enum class EKind {
        Updates,   ///< of that job's kind, from the first so many drivers to the panel target
        Relayed,   ///< the same from D00 to D01, which acts as the panel
        Fids,      ///< FIDs from D00 to D01, with a parameter or without
        Observed,  ///< the same: what they cost the thread that receives them from D00
        Trips,     ///< FIDs from D00 to D01 and back
        Stopped,   ///< job.count updates while the panel target stands still
        Full,      ///< the same with job.count FIDs from D00 to D01, each as long as a message can be
        Values,    ///< updates from so many drivers, into whatever the panel is
        Memory,    ///< per driver
        Idle,      ///< what the receiving threads use while nothing happens
        Shutdown,  ///< of everything; the last request
    };
    EKind kind = EKind::Updates;
    int round = 0;
    int pair = 0;  ///< which of the measurements of a round that are compared with each other
    Job job = {};
    int drivers = 1;
    double seconds = 0;  ///< how long a job takes at least that is measured
    bool hasParameter = false;
    bool isSeries = false;  ///< the result is one of a series over the number of drivers
};
