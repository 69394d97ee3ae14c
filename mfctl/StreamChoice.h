#pragma once

#include <string>
#include <vector>

#include "StreamFilter.h"

/// Which records of a stream are wanted, as the command line says it. Main thread.
struct StreamChoice {
    std::vector<std::string> drivers = {};  ///< patterns for IDs; none: all
    std::vector<std::string> kinds = {};    ///< names; none: all
    std::string glob = {};                  ///< empty: all

    /// As the API's stream takes them: words with commas between.
    static std::string joined(const std::vector<std::string>& words);
    /// Throws a ControlError (2) where a kind is none.
    stream::StreamFilter filter() const;
};
