#pragma once

#include "UpdatePeer.h"

/// A gRPC stream over a unix socket. Updates are sent in batches as a driver would: whoever reports puts an
/// update down, a thread of its own sends all that wait.
class GrpcUpdatePeer : public UpdatePeer {
public:
    explicit GrpcUpdatePeer(const std::string& directory);
    void receive(UpdateCheck& check, const std::function<void()>& ready) override;
    void send(const Job& job, const std::function<void()>& ready) override;

    static std::unique_ptr<UpdatePeer> make(const std::string& directory);

private:
    std::string m_address;
};
