#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "DriverGuard.h"
#include "DynamicLibrary.h"
#include "GuardedConfiguration.h"
#include "GuardedFunctionID.h"
#include "IInterface.h"
#include "sal/Module.h"

namespace sal {

struct Module::Impl {
    Impl(std::string file, DynamicLibrary&& code, std::unique_ptr<IInterface> driver);
    ~Impl();

    /// The driver's own answer; null, with a log line, when it throws.
    IInterface* ask(unsigned int id);

    DynamicLibrary library;  // the driver's code: outlives the driver
    std::string fileName;
    DriverGuard guard;
    std::unique_ptr<IInterface> pDriver;

    std::mutex mutex;  // for making the guards on first use
    std::unique_ptr<GuardedFunctionID> pFunctionID;
    std::unique_ptr<GuardedConfiguration> pConfiguration;
};

}  // namespace sal
