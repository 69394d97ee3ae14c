#pragma once

#include <optional>
#include <string>

/// Sets the network of a fresh network namespace up: lo, and an adapter eth0 with the address
/// "a.b.c.d/length". Nothing on success; else which step failed and why.
std::optional<std::string> setUpSandboxNetwork(const std::string& address);
