#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "LogCore.h"
#include "sal/LogOutput.h"

namespace sal {

struct LogOutput::Impl {
    std::string name;
    std::uint64_t number = 0;  ///< of this output alone in the life of the process
    std::shared_ptr<LogCore> pCore;
};

}  // namespace sal
