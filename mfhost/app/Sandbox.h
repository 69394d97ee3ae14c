#pragma once

#include <optional>
#include <string>

/// Private mount and network namespaces for this process and its driver processes: a /var/data and a /dev/shm
/// of their own and one adapter eth0, so that a workplace touches nothing of the machine. Everything else of
/// /var stays where it is. Entered first thing, while the process has one thread.
class Sandbox {
public:
    /// /var/data is kept in directory + "/data"; for an empty directory it is gone at the end. Nothing when
    /// the process is inside now; else which step was refused and why, and the process is to end.
    static std::optional<std::string> enter(const std::string& directory);

    /// Tries it in a process of its own, which ends at once. Nothing when a sandbox can be had; else which
    /// step was refused and why.
    static std::optional<std::string> refusal();

    static constexpr const char* s_address = "192.0.2.10/24";
};
