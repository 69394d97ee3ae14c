#include "ServiceManager.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string_view>

#include "HostLog.h"
#include "PanelNames.h"

namespace {

/// Between two looks at what has changed.
constexpr std::chrono::milliseconds s_interval{1000};
constexpr std::chrono::milliseconds s_startInterval{200};
/// The watchdog is fed so often within its time.
constexpr int s_meals = 3;
constexpr std::size_t s_mostNames = 5;
/// The command thread's first task, which takes as long as the drivers need.
constexpr const char* s_startUp = "start-up";

std::string environment(const char* name) {
    const char* pValue = std::getenv(name);
    return pValue ? pValue : "";
}

std::uint64_t number(const std::string& text) {
    std::uint64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

/// What systemd compares with the time at which it has sent the signal.
std::string monotonicTime() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::to_string(static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
                          static_cast<std::uint64_t>(now.tv_nsec) / 1'000);
}

}  // namespace

ServiceManager::Settings ServiceManager::Settings::ofEnvironment(std::chrono::milliseconds callLimit) {
    // The variables stay as they are: what a driver process sends is not taken for the host's, since the
    // service manager listens to the main process alone.
    Settings settings{.socket = environment("NOTIFY_SOCKET"), .callLimit = callLimit};
    const std::string process = environment("WATCHDOG_PID");
    if (process.empty() || process == std::to_string(::getpid()))
        settings.watchdog = std::chrono::microseconds(number(environment("WATCHDOG_USEC")));
    return settings;
}

ServiceManager::ServiceManager(const Settings& settings) : m_settings(settings), m_socket(settings.socket) {}

void ServiceManager::started() {
    m_isStarted = true;
    tell("READY=1\n", NotifySocket::EPatience::Short);
}

void ServiceManager::reloadBegins() {
    tell("RELOADING=1\nMONOTONIC_USEC=" + monotonicTime() + "\n", NotifySocket::EPatience::Short);
}

void ServiceManager::reloadEnded() {
    if (!m_isStopping)
        tell("READY=1\n", NotifySocket::EPatience::Short);
}

void ServiceManager::stopping() {
    if (!m_isStopping.exchange(true))
        tell("STOPPING=1\n", NotifySocket::EPatience::Short);
}

ServiceManager::Clock::time_point ServiceManager::watch(const CommandActivity& activity,
                                                        const DriverTable& drivers, Clock::time_point now) {
    if (now < m_next)
        return m_next;
    const auto all = drivers.drivers();
    if (m_isStarted) {
        if (std::string text = status(all); text != m_status) {
            m_status = std::move(text);
            tell("STATUS=" + m_status + "\n", NotifySocket::EPatience::None);
        }
    } else {
        tellProgress(all);
    }
    m_next = now + (m_isStarted ? s_interval : s_startInterval);
    if (m_settings.watchdog.count() > 0) {
        feedWatchdog(activity, drivers, now);
        m_next = std::min(m_next, m_nextMeal);
    }
    return m_next;
}

/// Each driver that comes to run gives the start more time: process drivers come up one after the other.
void ServiceManager::tellProgress(const std::vector<DriverTable::Driver>& drivers) {
    std::uint64_t progress = 0;
    for (const DriverTable::Driver& driver : drivers)
        progress += driver.start + (driver.state != EDriverState::NotLoaded ? 1 : 0);
    if (progress == m_progress)
        return;
    m_progress = progress;
    m_status = "starting: " + status(drivers);
    const auto more = std::chrono::duration_cast<std::chrono::microseconds>(m_settings.callLimit).count();
    tell("EXTEND_TIMEOUT_USEC=" + std::to_string(more) + "\nSTATUS=" + m_status + "\n",
         NotifySocket::EPatience::None);
}

/// Nothing but the end of the host ends a call into a driver in its process.
void ServiceManager::feedWatchdog(const CommandActivity& activity, const DriverTable& drivers,
                                  Clock::time_point now) {
    if (now < m_nextMeal)
        return;
    m_nextMeal = now + std::max(Clock::duration(m_settings.watchdog) / s_meals,
                                Clock::duration(std::chrono::milliseconds(1)));
    if (activity.busy && activity.what != s_startUp) {
        for (const DriverTable::Call& call : drivers.innermostCalls()) {
            if (call.thread != activity.thread || now - call.since < m_settings.callLimit)
                continue;
            if (m_heldSince != call.since)
                hostLog(sal::LogOutput::eCritical)
                    << call.driverID << ": " << call.operation << " has held up the host for "
                    << std::chrono::duration_cast<std::chrono::seconds>(m_settings.callLimit).count()
                    << " s; its service manager is left to end it" << std::endl;
            m_heldSince = call.since;
            return;
        }
    }
    m_heldSince.reset();
    tell("WATCHDOG=1\n", NotifySocket::EPatience::None);
}

std::string ServiceManager::status(const std::vector<DriverTable::Driver>& drivers) {
    std::size_t wanted = 0;
    std::size_t running = 0;
    std::size_t parked = 0;
    std::size_t missing = 0;
    std::string names;
    for (const DriverTable::Driver& driver : drivers) {
        if (driver.id == protocol::panelDriverID)
            continue;
        if (driver.state == EDriverState::Parked || driver.state == EDriverState::Parking) {
            ++parked;
            continue;
        }
        ++wanted;
        if (driver.state == EDriverState::Running)
            ++running;
        else if (++missing <= s_mostNames)
            names += (names.empty() ? "" : ", ") + driver.id;
    }
    std::string text = std::to_string(running) + " of " + std::to_string(wanted) +
                       (wanted == 1 ? " driver runs" : " drivers run");
    if (missing > 0)
        text += "; not " + names + (missing > s_mostNames ? ", ..." : "");
    if (parked > 0)
        text += "; " + std::to_string(parked) + (parked == 1 ? " is parked" : " are parked");
    return text;
}

void ServiceManager::tell(const std::string& lines, NotifySocket::EPatience patience) {
    const std::string reason = m_socket.send(lines, patience);
    if (!reason.empty() && !m_hasFailed.exchange(true))
        hostLog(sal::LogOutput::eWarning)
            << "the service manager cannot be told how the host is: " << reason << std::endl;
}
