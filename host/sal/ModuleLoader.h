#pragma once

#include <string>

#include "sal/Export.h"
#include "sal/Module.h"

namespace sal {

/// Loads driver modules. Holds nothing: a Module outlives its loader.
class SAL_API ModuleLoader {
public:
    enum ELoadOption {
        eLoadDefault = 0,  ///< bind all symbols at once, show none to others; try the module out before
        eLoadUnprobed = 1  ///< the same in a process that is the driver's alone: nothing is tried out
    };

    ModuleLoader() = default;

    /// Maps the file and makes its driver. A bare name is looked up in the working directory. A file that was
    /// replaced on disk since it was last loaded gives the new code. Null on failure, with one log line in
    /// the loader's own words: no such file, not a module, a missing symbol, another ABI, no driver made.
    ///
    /// A file that is new to this process or has changed (device, inode, size, time of change) is tried out
    /// before by the program mfdprobe beside the running one, in a process that ends with it: mapped, its
    /// driver made, asked for both driver interfaces, deleted. When that process dies of it or does not come
    /// to its end within 10 s, nothing is loaded and the log line tells how it ended. So a driver's
    /// constructor and destructor run once more than otherwise; MFD_PROBE is set in the environment there.
    /// MFD_PROBE_TIMEOUT gives another time, in seconds; 0 tries nothing out. Without the program, or when no
    /// process can be had, the module is loaded all the same, with a log line.
    Module* load(ELoadOption option, const std::string& fileName);

    /// Why the module in that file cannot be loaded, in the loader's own words; empty when it can. It is
    /// tried out as above each time, and nothing is loaded into this process. Empty also where it cannot be
    /// tried out: without the program (a log line says so once), and with MFD_PROBE_TIMEOUT=0. Any thread;
    /// waits for the trial.
    static std::string tryOut(const std::string& fileName);

    /// The reason in the text of a log line that says why a module could not be loaded, of whichever process;
    /// empty for any other line. Any thread.
    static std::string faultIn(const std::string& text);
};

}  // namespace sal
