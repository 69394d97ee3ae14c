#pragma once

#include <string>

/// Sets the network of a fresh network namespace up: lo, and an adapter eth0 with the address
/// "a.b.c.d/length". Empty on success; else which step failed and why.
std::string setUpSandboxNetwork(const std::string& address);
