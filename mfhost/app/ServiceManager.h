#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CommandActivity.h"
#include "DriverTable.h"
#include "NotifySocket.h"

/// Tells the service manager that has started the host how it is, as sd_notify(3) has it: that the drivers
/// are started, how many run, that changed files are taken over, that the host stops, and to its watchdog
/// that the host goes on. Says nothing where no service manager asks. Made by main, used by Host.
class ServiceManager {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::string socket;  ///< empty where there is no service manager
        std::chrono::microseconds watchdog{
            0};  ///< within which it wants to hear that the host goes on; 0: not
        /// How long one call of a driver in the host's process may hold up the command thread before the
        /// watchdog is let run out, and how much longer each driver may make a start.
        std::chrono::milliseconds callLimit{60'000};

        /// What the service manager has set in the environment of this process.
        static Settings ofEnvironment(std::chrono::milliseconds callLimit);
    };

    explicit ServiceManager(const Settings& settings);
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    bool isThere() const { return m_socket.isThere(); }

    /// The drivers are started. Command thread.
    void started();
    /// Changed files are to be taken over; that has come to its end. Any thread.
    void reloadBegins();
    void reloadEnded();
    /// The host stops. Any thread; the first call counts.
    void stopping();

    /// On the thread that watches the drivers, each time that it goes round: tells what has changed, and the
    /// watchdog that the host goes on. Returns when it wants to be called again at the latest.
    Clock::time_point watch(const CommandActivity& activity, const DriverTable& drivers,
                            Clock::time_point now);

    /// "12 of 14 drivers run; not AXIS1, LAMP; 1 is parked". The panel driver is not counted.
    static std::string status(const std::vector<DriverTable::Driver>& drivers);

private:
    void tell(const std::string& lines, NotifySocket::EPatience patience);
    void tellProgress(const std::vector<DriverTable::Driver>& drivers);
    void feedWatchdog(const CommandActivity& activity, const DriverTable& drivers, Clock::time_point now);

    const Settings m_settings;
    const NotifySocket m_socket;
    std::atomic<bool> m_isStarted = false;
    std::atomic<bool> m_isStopping = false;
    std::atomic<bool> m_hasFailed = false;  ///< and that was said

    // The watching thread's own.
    Clock::time_point m_next;
    Clock::time_point m_nextMeal;
    std::string m_status;
    std::uint64_t m_progress = 0;
    std::optional<Clock::time_point> m_heldSince;  ///< the call for which the watchdog is not fed
};
