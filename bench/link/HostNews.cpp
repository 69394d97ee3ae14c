#include "HostNews.h"

#include <signal.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>

#include "UpdateSeries.h"

namespace {

constexpr std::chrono::seconds s_patience{120};

}  // namespace

HostNews::HostNews(std::filesystem::path directory, int drivers)
    : m_host({.directory = std::move(directory),
              .drivers = drivers,
              .options = {"--start-wait=attached", "--tell-panel", "--follow=PANEL.DRIVER.*",
                          "--restart-limit", "0"},
              .isRead = true}) {
    m_host.start();
    m_host.waitUntilStarted();
    // The panel has been told of all by then.
    while (m_host.readLine(std::chrono::milliseconds(200))) {
    }
}

double HostNews::kill(int driver) {
    const std::string driverID = HostProgram::driverID(driver);
    const pid_t process = m_host.processOf(driver);
    if (process == 0)
        throw std::runtime_error(driverID + " is not running: " + m_host.log());
    const std::int64_t begin = UpdateSeries::now();
    ::kill(process, SIGKILL);
    while (const auto line = m_host.readLine(s_patience)) {
        if (line->find("PANEL.DRIVER." + driverID + " = ended") != std::string::npos)
            return static_cast<double>(UpdateSeries::now() - begin) / 1e6;
    }
    throw std::runtime_error("the panel is not told of the end of " + driverID + ": " + m_host.log());
}
