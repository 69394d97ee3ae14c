#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "mfd/testing/DriverBench.h"

namespace mfd::testing {

/// For INSTANTIATE_TEST_SUITE_P: both modes, and their names.
inline auto bothModes() {
    return ::testing::Values(EMode::InProcess, EMode::OwnProcess);
}
inline std::string modeName(const ::testing::TestParamInfo<EMode>& info) {
    return info.param == EMode::InProcess ? "InProcess" : "OwnProcess";
}
/// For GoogleTest, which prints the mode of a test that fails.
inline void PrintTo(EMode mode, std::ostream* pOut) {
    *pOut << modeName({mode, 0});
}

/// A host of one driver, for a test: loads the module as it is installed, sends it FIDs, and writes down what
/// it reports, sends and logs (story()). Needs no rights, and leaves nothing behind. Timers of an mfd::Driver
/// stand still and move with advance(). One at a time in a process, used by one thread. Whatever waits gives
/// up after the patience and says what it has seen instead.
class Workplace {
public:
    using Parameters = DriverBench::Parameters;
    using Settings = DriverBench::Settings;

    /// A std::runtime_error says what the system does not give, a std::logic_error that there is one already.
    explicit Workplace(Settings settings) : m_bench(std::move(settings)) {}
#if defined(MFD_DRIVER_MODULE) && defined(MFD_TESTING_WRAPPER)
    /// With the driver that mfd_add_driver_test() names.
    explicit Workplace(EMode mode, std::string driverID = "DRIVER")
        : Workplace(Settings{mode, MFD_DRIVER_MODULE, MFD_TESTING_WRAPPER, std::move(driverID)}) {}
#endif
    /// Loads the driver, hands in what a host does, completes its initialisation. A driver process cannot
    /// tell how that came out: there it says that the process has come up.
    ::testing::AssertionResult start() {
        return verdict(m_bench.start());
    }
    /// Deinitialises and unloads the driver. Fails when it says so, its process ends with anything but 0, or
    /// its code stays mapped, since a reload would go on with it. May be started again: its NVRAM directory
    /// stays.
    ::testing::AssertionResult stop() {
        return verdict(m_bench.stop());
    }
    /// Ends the driver's process as a crash does; fails where it has none.
    ::testing::AssertionResult kill() {
        return verdict(m_bench.kill());
    }
    /// Whether the driver is loaded and its process, if it has one, is alive.
    bool isRunning() const {
        return m_bench.isRunning();
    }

    /// Sends a FID, without the driver ID. In process what the driver has answered; else whether its queue
    /// has taken it.
    bool send(const std::string& fid, const Parameters& parameters = {}) {
        return m_bench.send(fid, parameters);
    }
    /// From now on each FID that the driver sends to others is refused, as by a host that ends. In process
    /// alone: the queue of a driver process takes what fits.
    ::testing::AssertionResult refuseFids(bool refused = true) {
        return verdict(m_bench.refuseFids(refused));
    }

    /// Waits until the state has that value now: "true", "5", "2.5", a text.
    ::testing::AssertionResult waitForState(const std::string& id, const std::string& value) const {
        return verdict(m_bench.waitForState(id, value));
    }
    ::testing::AssertionResult waitForUnset(const std::string& id) const {
        return verdict(m_bench.waitForState(id, std::nullopt));
    }
    /// These wait until it has come that many times in all.
    ::testing::AssertionResult waitForEvent(const std::string& id, const std::string& text = {},
                                            std::size_t times = 1) const {
        return waitFor("event " + id + (text.empty() ? "" : " " + text), times);
    }
    /// A FID that the driver has sent to another: "PANEL.ALARM source=LAMP1, text=too hot".
    ::testing::AssertionResult waitForFid(const std::string& fid, std::size_t times = 1) const {
        return waitFor("send " + fid, times);
    }
    /// A line of the log that has this text somewhere.
    ::testing::AssertionResult waitForLog(const std::string& text) const {
        return verdict(m_bench.waitForLog(text));
    }

    /// Lets so much time pass for the driver's timers, each at its instant, and returns when all that was
    /// sent before and all that was due is done. For an mfd::Driver whose time stands still.
    ::testing::AssertionResult advance(std::chrono::milliseconds time) {
        return verdict(m_bench.advance(time));
    }
    /// Returns when the driver has done all that was sent before.
    ::testing::AssertionResult settle() {
        return advance(std::chrono::milliseconds(0));
    }

    /// What a state is now; nothing when it is unset or was never reported.
    std::optional<std::string> state(const std::string& id) const {
        return m_bench.state(id);
    }
    /// How often a line stands in the story: "event FAULT open".
    std::size_t count(const std::string& line) const {
        return m_bench.count(line);
    }
    /// All that was sent to the driver and came from it, a line each.
    std::string story() const {
        return m_bench.story();
    }

    /// The driver's NVRAM directory, the test's own.
    std::string nvramDirectory() const {
        return m_bench.nvramDirectory();
    }

private:
    ::testing::AssertionResult waitFor(const std::string& line, std::size_t times) const {
        return verdict(m_bench.waitForLine(line, times));
    }
    ::testing::AssertionResult verdict(const std::string& fault) const {
        if (fault.empty())
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << fault << "\nWhat happened:\n" << story();
    }

    DriverBench m_bench;
};

}  // namespace mfd::testing
