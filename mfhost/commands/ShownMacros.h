#pragma once

#include <string>
#include <vector>

#include "StateStore.h"

/// The names of the macros as the panel driver shows them among the state values. Any thread.
struct ShownMacros {
    static ShownMacros of(const StateStore& store);

    std::vector<std::string> names;
    bool isWhole = true;  ///< false when they were too many for a value
};
