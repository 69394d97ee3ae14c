#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "HostProgram.h"
#include "StartPeer.h"

/// This system: the host program with a probe driver for each, told on its console what to send.
class HostStartPeer : public StartPeer {
public:
    /// How long the host waits for a driver process that it has started; what --start-wait= takes.
    HostStartPeer(std::filesystem::path directory, std::string startWait);

    double start(int drivers) override;
    double restart(int driver) override;
    /// By the command of the console.
    double reload(int driver);

private:
    void ask(int driver) const;
    /// The driver that has said next that it has done what it was asked, begun after that time; empty when
    /// none has within the patience.
    std::string answered(std::int64_t since, std::chrono::milliseconds patience);
    /// Until nothing more comes of what was asked before.
    void settle();

    const std::filesystem::path m_directory;
    const std::string m_startWait;
    std::optional<HostProgram> m_host;
};
