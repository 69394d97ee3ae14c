#pragma once

#include "UpdatePeer.h"

/// A gRPC stream over a unix socket. Updates are sent in batches as a driver would: whoever reports puts an
/// update down, a thread of its own sends all that wait, but so many at most together.
class GrpcUpdatePeer : public UpdatePeer {
public:
    GrpcUpdatePeer(const std::string& directory, int limit);
    void receive(PanelTarget& target, const std::function<void()>& ready) override;
    void send(const Job& job, const std::function<void()>& ready) override;

    /// As many as a driver's queue holds.
    static std::unique_ptr<UpdatePeer> makeDeep(const std::string& directory);
    /// As many as are ever held back in the host before they are delivered.
    static std::unique_ptr<UpdatePeer> makeShallow(const std::string& directory);
    /// A few.
    static std::unique_ptr<UpdatePeer> makeSmall(const std::string& directory);

private:
    std::string m_address;
    int m_limit;
};
