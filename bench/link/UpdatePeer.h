#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Job.h"
#include "PanelTarget.h"

/// What one would carry updates with instead, from one process to another. Made by the measuring process,
/// which then forks both ends; each end calls one of the operations. All of them throw when something fails.
class UpdatePeer {
public:
    virtual ~UpdatePeer() = default;
    /// Processes that take part beside the two ends.
    virtual std::vector<pid_t> helpers() const { return {}; }
    /// Opens the receiving end, calls ready, and returns when the target has everything of D00. The target is
    /// called as the module calls it: with the driver ID before the name.
    virtual void receive(PanelTarget& target, const std::function<void()>& ready) = 0;
    /// Opens the sending end, calls ready, which returns when it is time to send, and sends.
    virtual void send(const Job& job, const std::function<void()>& ready) = 0;
};

struct UpdatePeerKind {
    std::string name;
    bool isSlow;  ///< does less, so that it takes no longer
    std::unique_ptr<UpdatePeer> (*make)(const std::string& directory);
};
