#pragma once

#include <string>
#include <vector>

#include "sal/CmdRegister.h"

namespace fakehost {

/// The console as a test scripts and sees it. One for the process; fresh with each FakeHost.
struct Console {
    static Console& instance();

    std::string missingArgument;              ///< what argument() answers at and beyond the end
    unsigned int argumentCounts = 0;          ///< how often argumentCount() was asked
    std::vector<sal::CmdRegister*> commands;  ///< all that were registered, in order; not owned
};

}  // namespace fakehost
