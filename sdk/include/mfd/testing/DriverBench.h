#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace mfd::testing {

/// Where a driver under test runs.
enum class EMode {
    InProcess,   ///< in the test's process, as with interfaceType="direct"
    OwnProcess,  ///< in mfddllwrap behind real queues, as with interfaceType="queue"
};

/// What Workplace does, without GoogleTest: what returns a text returns what is wrong, empty for nothing.
/// Used by one thread; one at a time in a process.
class DriverBench {
public:
    using Parameters = std::vector<std::pair<std::string, std::string>>;

    struct Settings {
        EMode mode = EMode::InProcess;
        std::string module;               ///< path of the driver's .so
        std::string wrapper;              ///< path of mfddllwrap
        std::string driverID = "DRIVER";  ///< named so in the log
        bool timeStandsStill = true;      ///< else timers come as in a host
        std::chrono::milliseconds patience{60000};
    };
    /// A std::runtime_error says what the system does not give, a std::logic_error that there is one already.
    explicit DriverBench(Settings settings);
    /// Stops the driver.
    ~DriverBench();
    DriverBench(const DriverBench&) = delete;
    DriverBench& operator=(const DriverBench&) = delete;

    std::string start();
    std::string stop();
    std::string kill();
    std::string refuseFids(bool refused);
    std::string advance(std::chrono::milliseconds time);
    /// Nothing for the value: that it is unset.
    std::string waitForState(const std::string& id, const std::optional<std::string>& value) const;
    std::string waitForLine(const std::string& line, std::size_t times) const;
    std::string waitForLog(const std::string& text) const;

    bool send(const std::string& fid, const Parameters& parameters);
    bool isRunning() const;
    std::optional<std::string> state(const std::string& id) const;
    std::size_t count(const std::string& line) const;
    std::string story() const;
    std::string nvramDirectory() const;

private:
    class Implementation;
    const std::unique_ptr<Implementation> m_pImplementation;
};

}  // namespace mfd::testing
