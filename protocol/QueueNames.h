#pragma once

#include <string>

/// What the host, the module and the driver process agree on: the names of queues and what they consist of.
/// docs/protocol.md has the byte tables.
namespace protocol {

/// The queue on which a driver process gets its messages.
std::string inputQueue(const std::string& driverID);
/// The queue on which a driver process sends.
std::string outputQueue(const std::string& driverID);

/// The driver whose input queue has that name; empty when it is another queue.
std::string receiverOf(const std::string& queue);
/// The driver whose input or output queue has that name; empty when it is another queue.
std::string ownerOf(const std::string& queue);

}  // namespace protocol
