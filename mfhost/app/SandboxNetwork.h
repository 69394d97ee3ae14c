#pragma once

#include <optional>
#include <string>

/// The network of a fresh network namespace: lo up, and an adapter eth0 that is up and has an address.
class SandboxNetwork {
public:
    /// address is "a.b.c.d/length". Nothing on success; else which step failed and why.
    static std::optional<std::string> setUp(const std::string& address);
};
