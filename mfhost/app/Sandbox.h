#pragma once

#include <string>

// The sandbox: private mount and network namespaces for this process and its driver processes, with a
// /var/data and a /dev/shm of their own and one adapter eth0, so that a workplace touches nothing of the
// machine. Everything else of /var stays where it is.

/// Enters the sandbox. /var/data is kept in directory + "/data"; for an empty directory it is gone at the
/// end. Empty when the process is inside now; else which step was refused and why, and the process is to
/// end. Called by main, while the process has one thread.
std::string enterSandbox(const std::string& directory);

/// Tries it in a process of its own, which ends at once. Empty when a sandbox can be had; else which step
/// was refused and why.
std::string sandboxRefusal();
