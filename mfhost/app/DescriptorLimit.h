#pragma once

#include <sys/resource.h>

/// Raises the soft limit of descriptors to the hard one: a host of many drivers needs several for each.
/// Returns the soft limit as it was. Called by main, before anything is opened that needs it.
rlim_t raiseDescriptorLimit();
