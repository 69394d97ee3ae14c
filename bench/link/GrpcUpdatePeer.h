#pragma once

#include <optional>

#include "ChildProcess.h"
#include "UpdatePeer.h"

/// A gRPC stream over a unix socket. A driver that sends without a break sends in batches: whoever reports
/// puts an update down, a thread of its own sends all that wait, but so many at most together. One that
/// pauses after an update, or after a burst, sends that itself, in one message.
class GrpcUpdatePeer : public UpdatePeer {
public:
    /// With a relay a process between the two passes each batch on, so that there are three.
    GrpcUpdatePeer(const std::string& directory, int limit, bool hasRelay = false);
    std::vector<pid_t> helpers() const override;
    void receive(PanelTarget& target, const std::function<void()>& ready,
                 const std::function<void()>& completed) override;
    void send(const NextJob& nextJob, BurstGate& gate) override;

    /// As many as a driver's queue holds.
    static std::unique_ptr<UpdatePeer> makeDeep(const std::string& directory);
    /// As many as are ever held back in the host before they are delivered.
    static std::unique_ptr<UpdatePeer> makeShallow(const std::string& directory);
    /// A few.
    static std::unique_ptr<UpdatePeer> makeSmall(const std::string& directory);
    /// As makeDeep() and makeShallow(), with a relay.
    static std::unique_ptr<UpdatePeer> makeDeepRelayed(const std::string& directory);
    static std::unique_ptr<UpdatePeer> makeShallowRelayed(const std::string& directory);

private:
    void relay() const;

    std::string m_panelAddress;   ///< where the receiving end listens
    std::string m_driverAddress;  ///< where the sending end goes to
    int m_limit;
    std::optional<ChildProcess> m_relay;
};
