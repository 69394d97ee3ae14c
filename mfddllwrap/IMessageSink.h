#pragma once

#include <cstddef>

/// Where whole messages for the host go.
class IMessageSink {
public:
    virtual ~IMessageSink() = default;

    /// Any thread; waits while there is no room. False when the host does not take messages any more.
    virtual bool send(const unsigned char* data, std::size_t length) = 0;
};
