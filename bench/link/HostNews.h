#pragma once

#include <filesystem>

#include "HostProgram.h"

/// The real host program that tells its panel driver how the others are: how long after a driver process was
/// killed the panel has said that it knows. Used by one thread.
class HostNews {
public:
    /// Returns when all drivers run. An ended one is not started again.
    HostNews(std::filesystem::path directory, int drivers);

    /// Kills the driver's process; milliseconds until the panel's state of it has been printed. Once for each
    /// driver.
    double kill(int driver);

private:
    HostProgram m_host;
};
