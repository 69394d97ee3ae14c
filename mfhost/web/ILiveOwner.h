#pragma once

#include <cstdint>
#include <string>

/// What the connection of a page tells the listener that owns it. API thread.
class ILiveOwner {
public:
    virtual ~ILiveOwner() = default;

    /// The first message of the page has come; the owner answers it, or lets the page go.
    virtual void pageCame(std::uint64_t id, const std::string& message) = 0;
    /// The connection is closed. The owner may let go of it.
    virtual void pageWent(std::uint64_t id) = 0;
};
