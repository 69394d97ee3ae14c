#pragma once

#include <set>
#include <string>
#include <vector>

#include "DescriptorCatalogue.h"

/// What descriptors announce now that the module's catalogue does not hold. That one only grows, and each of
/// its records of a type and version is loaded: a descriptor can be searched for when all of it is new. A
/// value.
struct DescriptorChanges {
    /// Descriptors, by their paths, that are to be searched for.
    std::set<std::string> newFiles;
    /// What only a restart of the host takes over, with file and line.
    std::vector<std::string> needRestart;

    static DescriptorChanges between(const DescriptorCatalogue& known, const DescriptorCatalogue& now);
};
