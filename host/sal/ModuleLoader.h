#pragma once

#include <string>

#include "sal/Export.h"
#include "sal/Module.h"

namespace sal {

/// Loads driver modules. Holds nothing: a Module outlives its loader.
class SAL_API ModuleLoader {
public:
    enum ELoadOption { eLoadDefault = 0 };  ///< bind all symbols at once, show none to others

    ModuleLoader() = default;

    /// Maps the file and makes its driver. A bare name is looked up in the working directory. A file that was
    /// replaced on disk since it was last loaded gives the new code. Null on failure, with one log line in
    /// the loader's own words: no such file, not a module, a missing symbol, another ABI, no driver made.
    Module* load(ELoadOption option, const std::string& fileName);
};

}  // namespace sal
