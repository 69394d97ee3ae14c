#pragma once

#include <memory>
#include <string>

#include "sal/Module.h"

namespace sal {

struct Module::Impl {
    std::string fileName;
    std::unique_ptr<IInterface> pDriver;
};

}  // namespace sal
