#pragma once

#include <string>

#include "sal/LogOutput.h"

namespace sal {

struct LogOutput::Impl {
    std::string name;
};

}  // namespace sal
