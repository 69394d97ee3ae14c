#include "DebuggerWait.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "sal/LogOutput.h"

namespace {

constexpr std::chrono::milliseconds s_pause{20};

/// Where only parents may look into a process: whoever debugs is none. Given back to the parent, the host.
class OpenToDebuggers {
public:
    OpenToDebuggers() { ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY); }
    ~OpenToDebuggers() { ::prctl(PR_SET_PTRACER, ::getppid()); }
    OpenToDebuggers(const OpenToDebuggers&) = delete;
    OpenToDebuggers& operator=(const OpenToDebuggers&) = delete;
};

bool isTraced() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        int tracer = 0;
        if (word == "TracerPid:")
            return status >> tracer && tracer != 0;
    }
    return false;
}

}  // namespace

bool waitForDebugger(std::chrono::seconds patience, sal::LogOutput& log) {
    // What the driver starts has nothing to wait for.
    ::unsetenv("MFD_WAIT_FOR_DEBUGGER");
    const OpenToDebuggers open;
    log.level(sal::LogOutput::eInfo) << "Waits up to " << patience.count() << " s for a debugger: gdb -p "
                                     << getpid() << std::endl;
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!isTraced()) {
        if (std::chrono::steady_clock::now() >= end) {
            log.level(sal::LogOutput::eWarning) << "No debugger has come; goes on without one" << std::endl;
            return false;
        }
        std::this_thread::sleep_for(s_pause);
    }
    log.level(sal::LogOutput::eInfo) << "A debugger holds the process" << std::endl;
    return true;
}
