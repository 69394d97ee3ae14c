#pragma once

#include <optional>
#include <string>

/// Reads what the kernel tells about the machine. Holds nothing but where to look. Any thread. Nothing comes
/// back for what cannot be read or does not read as expected.
class SystemProbe {
public:
    struct Paths {
        std::string loadAverage = "/proc/loadavg";
        std::string memory = "/proc/meminfo";
        std::string hostName = "/proc/sys/kernel/hostname";
        std::string networks = "/sys/class/net";
    };

    explicit SystemProbe(Paths paths);

    /// Mean number of processes that ran or waited to, over the last minute.
    std::optional<float> load() const;
    /// What new programs could use without swapping, in MiB.
    std::optional<int> freeMemory() const;
    std::optional<std::string> hostName() const;
    /// Whether a network interface other than the loopback is up and has a carrier.
    std::optional<bool> link() const;

private:
    Paths m_paths;
};
