#pragma once

#include <sys/types.h>
#include <string>

/// A queue_peer process that is run one instruction after another, from the beginning of one call into the
/// queue to its end, and killed wherever the test likes. Owned by a test; used on one thread.
class SteppedPeer {
public:
    /// Brings it to the beginning of its call: the command's name behind "step-".
    SteppedPeer(const std::string& command, const std::string& queue);
    ~SteppedPeer();
    SteppedPeer(const SteppedPeer&) = delete;
    SteppedPeer& operator=(const SteppedPeer&) = delete;

    /// False when the machine does not let it be traced, or when it did not come as far.
    bool isAtBeginning() const { return m_isAtBeginning; }
    /// Runs that many instructions; how many there were before the call was over.
    long run(long instructions);
    /// Lets it go on to the end of the call.
    void finish();
    void kill();

private:
    pid_t m_pid = -1;
    bool m_isAtBeginning = false;
};
