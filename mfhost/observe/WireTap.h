#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "Observation.h"

/// Records the messages in the queues of a driver process as they pass, before any is merged, for as long as
/// it is asked for. Owned by Host; told by FidTap, on the threads that send and receive.
class WireTap {
public:
    using Clock = Observation::Clock;

    /// The observation outlives it.
    explicit WireTap(Observation& observation) : m_observation(observation) {}
    WireTap(const WireTap&) = delete;
    WireTap& operator=(const WireTap&) = delete;

    /// Records the driver's messages until then. Any thread.
    void watch(const std::string& driverID, Clock::time_point until);

    /// Whether some driver's messages are to be recorded: the others cost this look.
    bool isOn() const { return m_isOn.load(std::memory_order_relaxed); }
    void sent(const std::string& queue, const unsigned char* data, int length, bool ok);
    void received(const std::string& queue, const unsigned char* data, int length);

private:
    void record(std::string_view driverID, std::string_view message, bool isFromDriver, bool ok);
    bool isWatched(std::string_view driverID, Clock::time_point now);
    std::string masked(std::string_view driverID, std::string_view message) const;

    Observation& m_observation;
    std::atomic<bool> m_isOn{false};
    std::mutex m_mutex;
    std::map<std::string, Clock::time_point, std::less<>> m_until;
};
