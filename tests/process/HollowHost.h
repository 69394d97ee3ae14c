#pragma once

#include <memory>
#include <string>

#include "HangGuard.h"
#include "sal/MessageQueue.h"

/// The host's end of one driver's queues and nothing else. Used by the tests themselves and by the program
/// hollowhost, which can be killed.
class HollowHost {
public:
    explicit HollowHost(std::string driverID);

    /// False when a queue cannot be made.
    bool makeQueues();
    void closeQueues();
    /// Starts mfddllwrap from this program's directory, as the host does, or what stands in for it there. The
    /// process ID; 0 when it did not start.
    int startWrapper(const std::string& modulePath, const std::string& program = "mfddllwrap");

    bool send(const std::string& frame);
    /// The driver's next frame; "nothing" when none comes in time.
    std::string receive(int timeout = c_hangGuardMs);

private:
    std::string m_driverID;
    std::unique_ptr<sal::MessageQueue> m_pInput;
    std::unique_ptr<sal::MessageQueue> m_pOutput;
};
