#pragma once

#include <array>

#include "TripPeer.h"

/// Bare AF_UNIX sockets, a pair to each end; in the relay a thread for each direction, which reads and
/// writes and looks at nothing.
class UnixTripPeer : public TripPeer {
public:
    explicit UnixTripPeer(int type);
    ~UnixTripPeer() override;
    void relay(const std::function<void()>& ready) override;
    void answer(const std::function<void()>& ready) override;
    void openAsking() override {}
    void ask(unsigned int number) override;

    static std::unique_ptr<TripPeer> makePacket(const std::string& directory);
    static std::unique_ptr<TripPeer> makeStream(const std::string& directory);

private:
    std::array<int, 2> m_asking;     ///< the asking process's end and the relay's
    std::array<int, 2> m_answering;  ///< the answering process's end and the relay's
};
