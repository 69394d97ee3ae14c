#pragma once

#include <string>
#include <vector>

#include "StreamFilter.h"

/// Which records of a stream are wanted, as the command line says it. Main thread.
struct StreamChoice {
    std::vector<std::string> drivers = {};  ///< patterns for IDs; none: all
    std::vector<std::string> kinds = {};    ///< names; none: all
    std::string glob = {};                  ///< empty: all

    /// Throws a ControlError (2) where a kind is none.
    stream::StreamFilter filter() const;
};
