#pragma once

#include "TripPeer.h"

/// gRPC over a unix socket: a stream to each end, a server between that passes on by the driver's name.
class GrpcTripPeer : public TripPeer {
public:
    explicit GrpcTripPeer(const std::string& directory);
    ~GrpcTripPeer() override;
    void relay(const std::function<void()>& ready) override;
    void answer(const std::function<void()>& ready) override;
    void openAsking() override;
    void ask(unsigned int number) override;

    static std::unique_ptr<TripPeer> make(const std::string& directory);

private:
    class Stream;

    std::string m_address;
    std::unique_ptr<Stream> m_pAsking;
};
