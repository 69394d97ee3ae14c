#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BurstGate.h"
#include "Job.h"
#include "PanelTarget.h"

/// What one would carry updates with instead, from one process to another. Made by the measuring process,
/// which then forks both ends; each end calls one of the operations, and is killed in the end. All of them
/// throw when something fails.
class UpdatePeer {
public:
    /// Returns when it is time to send, with what is to be sent.
    using NextJob = std::function<Job()>;

    virtual ~UpdatePeer() = default;
    /// Processes that take part beside the two ends.
    virtual std::vector<pid_t> helpers() const { return {}; }
    /// Opens the receiving end, calls ready, and passes everything to the target, as the module does: with
    /// the driver ID before the name. Calls completed whenever the target has everything of D00.
    virtual void receive(PanelTarget& target, const std::function<void()>& ready,
                         const std::function<void()>& completed) = 0;
    /// Opens the sending end, and sends one job after another. The gate is for those in bursts.
    virtual void send(const NextJob& nextJob, BurstGate& gate) = 0;
};

struct UpdatePeerKind {
    std::string name;
    std::unique_ptr<UpdatePeer> (*make)(const std::string& directory);
};
