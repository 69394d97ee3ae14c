#pragma once

#include <optional>
#include <string>

#include "sal/Export.h"

namespace sal {

/// The last line of a driver process that dies of a signal of its own making: on which thread. Its host reads
/// the stack of that thread from outside and then lets the process die, of the same signal. The process waits
/// for that three seconds at most, and not at all when its host is gone.
class SAL_API CrashNote {
public:
    struct Crash {
        int signal = 0;
        int thread = 0;  ///< as the system numbers it
    };

    /// From now on this process says it, in the name of that driver. Nothing where no host reads its standard
    /// error, and where something handles these signals already, as a sanitizer does. For the main thread of
    /// a program, once its log is there.
    static void install(const std::string& driverID);

    /// What a line of a process's log says; nothing when it is another line. Any thread.
    static std::optional<Crash> in(const std::string& text);
};

}  // namespace sal
