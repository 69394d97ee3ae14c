#pragma once

#include <functional>
#include <memory>
#include <string>

/// What one would send there and back with instead: one end asks, the other answers, a process between the
/// two passes everything on, so that there are four hops. Made by the measuring process, which then forks
/// the three; each calls the operations of its part. All of them throw when something fails.
class TripPeer {
public:
    virtual ~TripPeer() = default;
    /// Calls ready when the others may come, and passes on until it is killed.
    virtual void relay(const std::function<void()>& ready) = 0;
    /// Answers until it is killed.
    virtual void answer(const std::function<void()>& ready) = 0;
    virtual void openAsking() = 0;
    /// One trip; throws when what comes back is wrong.
    virtual void ask(unsigned int number) = 0;
};

struct TripPeerKind {
    std::string name;
    std::unique_ptr<TripPeer> (*make)(const std::string& directory);
};
