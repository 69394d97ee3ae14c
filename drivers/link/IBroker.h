#pragma once

#include <cstddef>
#include <string>

#include "LinkMessage.h"

/// A connection that stands, as LinkCore uses it. One thread at a time.
class IBroker {
public:
    virtual ~IBroker() = default;

    /// False when the message cannot be sent, being no text that a broker takes, say. True does not say that
    /// it has arrived.
    virtual bool publish(const LinkMessage& message) = 0;
    /// What this connection publishes itself does not come back.
    virtual bool subscribe(const std::string& topics) = 0;
    /// How many messages the broker has not confirmed yet.
    virtual std::size_t pending() const = 0;
};
