#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

/// One way of carrying messages from one process to another. Made before the fork by the receiving process;
/// afterwards each side opens its end.
class Transport {
public:
    virtual ~Transport() = default;
    virtual void openSender() {}
    virtual void openReceiver() {}
    /// Waits while there is no room. Throws when it fails.
    virtual void send(const void* pMessage, std::size_t size) = 0;
    /// Waits for a message of that size. Throws when it fails or when the size is another.
    virtual void receive(void* pMessage, std::size_t size) = 0;
};

struct TransportKind {
    std::string name;
    std::unique_ptr<Transport> (*make)(std::size_t messageSize);
};

std::unique_ptr<Transport> makeSalTransport(std::size_t messageSize);
std::unique_ptr<Transport> makePosixMqTransport(std::size_t messageSize);
std::unique_ptr<Transport> makeBoostTransport(std::size_t messageSize);
std::unique_ptr<Transport> makeZeroMqTransport(std::size_t messageSize);
std::unique_ptr<Transport> makePipeTransport(std::size_t messageSize);
