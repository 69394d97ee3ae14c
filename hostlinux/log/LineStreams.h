#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "LogCore.h"

namespace sal {

/// The stream of the calling thread for an output and a level within the scale; made on first use. Outputs
/// are told apart by a number that is never used again, so that a stream made for one LogManager is not taken
/// for a later one's.
std::ostream& lineStream(std::uint64_t outputNumber, const std::string& outputName, int level,
                         const std::shared_ptr<LogCore>& pCore);
/// A stream of the calling thread that formats nothing.
std::ostream& nullStream();

}  // namespace sal
