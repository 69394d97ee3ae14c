#pragma once

#include <string>
#include <vector>

#include "sal/Process.h"

namespace sal {

/// Who is told of the processes that this one starts, and what the threads that start them owe to him: the
/// next sleep of such a thread is his to end. Any thread.
class ProcessObserver {
public:
    /// Null takes the observer out.
    static void set(Process::Observer* pObserver);

    /// Tells the observer, and notes the process on the calling thread. False when there is none.
    static bool tell(const Process::Started& process);
    /// Tells the observer, where there is one, that a process could not be started, and why.
    static void tellFailed(const std::vector<std::string>& arguments, const std::string& reason);

    /// What the observer, where there is one, wants set in the environment of a process with these arguments.
    static std::vector<std::string> variables(const std::vector<std::string>& arguments);

    /// Whether there is an observer that captures the standard error of the next process.
    static bool capturesErrors();
    /// What the log of a process whose standard error is captured goes on with when this one is gone: the
    /// observer's descriptor, or else standard error.
    static int formerErrors();

    /// Has the observer wait for the process that the calling thread has noted, which is noted no longer.
    /// False, at once, when none is noted or there is no observer.
    static bool awaitStart(unsigned int seconds);
};

}  // namespace sal
