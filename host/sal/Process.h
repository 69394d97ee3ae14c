#pragma once

#include <string>
#include <vector>

#include "sal/Export.h"
#include "sal/Path.h"

namespace sal {

/// Starts child processes. A child has /dev/null as standard input, a session of its own, default signal
/// dispositions and an empty mask, no descriptor but the standard ones, and the environment of this process
/// with two variables more. MFD_PROCESS is a mark of its own. MFD_QUEUE_MAKER lets the child open the message
/// queues that this process has made so far and none that it makes later, so that a child that comes up late
/// takes no message that was meant for its successor.
class SAL_API Process {
public:
    /// Starts executable with title as argv[0], followed by arguments. False, logged with the system's
    /// reason, when it could not be started, a failed exec included. Any thread.
    static bool createProcess(const std::string& title, Path& executable,
                              const std::vector<std::string>& arguments);

    struct Started {
        int pid = 0;
        int pidFd = -1;  ///< becomes readable when the process ends; the observer owns and closes it
        std::string title;
        std::vector<std::string> arguments;
        std::string mark = {};  ///< in its environment and that of all it starts, for a ProcessFamily
        /// What it writes to standard error is read from here, without waiting; the observer owns and closes
        /// it. -1 where it has the standard error of this process.
        int errorFd = -1;
    };

    /// Is told of every child, on the thread that made it, before createProcess returns. The observer reaps
    /// it with waitid(P_PIDFD, ...). Without an observer libsal reaps its children itself.
    class SAL_API Observer {
    public:
        virtual ~Observer() = default;
        virtual void processStarted(const Started& process) = 0;
        /// A process with these arguments could not be started, for this reason, which is in the log already.
        /// On the thread that asked for it, before createProcess returns false. By default nothing.
        virtual void startFailed(const std::vector<std::string>& arguments, const std::string& reason);

        /// What is set in the environment of the process that is about to be made with these arguments
        /// besides, "NAME=value" each. On the thread that makes it; by default nothing.
        virtual std::vector<std::string> variables(const std::vector<std::string>& arguments);

        /// Whether the standard error of a process about to be made is to be a pipe that the observer reads.
        /// It reads always: a process whose pipe is full waits. The log of the process writes its lines there
        /// for LogManager::readErrorLine. When this process is gone, the log goes on with formerErrors(). On
        /// the thread that makes the process; by default false.
        virtual bool capturesErrors() { return false; }
        /// What such a process finds as descriptor 3, and closes in what it starts itself: a descriptor of
        /// this process, which keeps it; -1, as by default, for the standard error of this process. Where
        /// that ends with this process, it is one that does not. On the same thread.
        virtual int formerErrors() { return -1; }

        /// Takes the place of the first Thread::sleep of a thread after it has made a process: the thread
        /// means to let the process come up. On that thread; returns when it may go on, after these seconds
        /// at the latest. By default it sleeps them all.
        virtual void awaitStart(int pid, unsigned int seconds);
    };
    /// Null takes the observer out. Set at start, taken out when no other thread makes processes any more.
    static void setObserver(Observer* pObserver);
};

}  // namespace sal
