#pragma once

#include <sys/resource.h>

/// How many descriptors the process may have.
class DescriptorLimit {
public:
    /// Raises the soft limit to the hard one: a host of many drivers needs several descriptors for each.
    /// Returns the soft limit as it was. First thing, before anything is opened that needs it.
    static rlim_t raise();
};
