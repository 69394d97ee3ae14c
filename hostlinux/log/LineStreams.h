#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "LogCore.h"

namespace sal {

/// The calling thread's streams. Outputs are told apart by a number that is never used again, so that a
/// stream made for one LogManager is not taken for a later one's.
class LineStreams {
public:
    /// The stream of the calling thread for an output and a level within the scale; made on first use.
    static std::ostream& stream(std::uint64_t outputNumber, const std::string& outputName, int level,
                                const std::shared_ptr<LogCore>& pCore);
    /// A stream that formats nothing.
    static std::ostream& nowhere();
};

}  // namespace sal
