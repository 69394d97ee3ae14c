#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

/// Makes messages that no driver process should send, the same ones for the same seed, and puts them into the
/// queue to the host. One thread.
class GarbageSender {
public:
    explicit GarbageSender(std::uint32_t seed) : m_random(seed) {}

    /// False when there is no such queue (the driver runs in the host's own process) or it takes no more.
    bool send(const std::string& driverID, int count);

    /// Random bytes, or a known message code with a body that is random, cut off, or claims more than there
    /// is; 1 to 1024 bytes.
    std::vector<unsigned char> message();

private:
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(m_random() % limit); }

    std::mt19937 m_random;
};
