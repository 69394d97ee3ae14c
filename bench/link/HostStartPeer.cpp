#include "HostStartPeer.h"

#include <signal.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>

#include "UpdateSeries.h"

using namespace std::chrono_literals;

HostStartPeer::HostStartPeer(std::filesystem::path directory, std::string startWait)
    : m_directory(std::move(directory)), m_startWait(std::move(startWait)) {}

double HostStartPeer::start(int drivers) {
    m_host.emplace(HostProgram::Settings{.directory = m_directory,
                                         .drivers = drivers,
                                         .options = {"--start-wait=" + m_startWait, "--follow=*.DONE"},
                                         .isRead = true});
    const std::int64_t begin = UpdateSeries::now();
    m_host->start();
    // Typed ahead: the host does it as soon as the workplace is started.
    for (int driver = 0; driver < drivers; ++driver)
        ask(driver);
    for (std::set<std::string> ready; ready.size() < static_cast<std::size_t>(drivers);) {
        const std::string driverID = answered(0, s_patience);
        if (driverID.empty())
            throw std::runtime_error("only " + std::to_string(ready.size()) +
                                     " drivers answer: " + m_host->log());
        ready.insert(driverID);
    }
    return millisecondsSince(begin);
}

double HostStartPeer::restart(int driver) {
    settle();
    const std::string driverID = HostProgram::driverID(driver);
    const pid_t process = m_host->processOf(driver);
    if (process == 0)
        throw std::runtime_error(driverID + " is not running: " + m_host->log());
    const std::int64_t begin = UpdateSeries::now();
    ::kill(process, SIGKILL);
    // What is sent while no process is there is lost. The pause is a fiftieth of what is measured, or less.
    std::chrono::milliseconds passed{0};
    do {
        ask(driver);
        if (answered(begin, std::clamp(passed / 50, 1ms, 20ms)) == driverID)
            return millisecondsSince(begin);
        passed = std::chrono::milliseconds(static_cast<int>(millisecondsSince(begin)));
    } while (passed < s_patience);
    throw std::runtime_error(driverID + " is not started again: " + m_host->log());
}

double HostStartPeer::reload(int driver) {
    settle();
    const std::int64_t begin = UpdateSeries::now();
    m_host->type("reloadDriver " + HostProgram::driverID(driver));
    ask(driver);
    if (answered(begin, s_patience) != HostProgram::driverID(driver))
        throw std::runtime_error(HostProgram::driverID(driver) + " is not reloaded: " + m_host->log());
    return millisecondsSince(begin);
}

void HostStartPeer::ask(int driver) const {
    m_host->type("sendFID " + HostProgram::driverID(driver) + ".SEND kind=0 count=1 name=8 value=8");
}

std::string HostStartPeer::answered(std::int64_t since, std::chrono::milliseconds patience) {
    // "event D00.DONE 1234567 0": when the driver began, and how much was wrong.
    while (const auto line = m_host->readLine(patience)) {
        std::istringstream words(*line);
        std::string kind;
        std::string name;
        std::int64_t begin = 0;
        words >> kind >> name >> begin;
        if (kind == "event" && name.ends_with(".DONE") && begin >= since)
            return name.substr(0, name.find('.'));
    }
    return {};
}

void HostStartPeer::settle() {
    while (m_host->readLine(100ms)) {
    }
}
