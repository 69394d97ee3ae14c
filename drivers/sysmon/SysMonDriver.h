#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "CallGate.h"
#include "MfdDriverBase.h"
#include "SystemProbe.h"

/// Watches the machine it runs on: load, free memory, host name, network link; raises an alarm at the panel
/// when the load crosses a threshold. Runs in the host's process or in one of its own; the loader or the
/// wrapper owns it. Several may live in one process. FIDs come on any thread; a thread of its own samples and
/// reports everything but MARK.
class SysMonDriver : public MfdDriverBase {
public:
    explicit SysMonDriver(SystemProbe::Paths paths = {});
    ~SysMonDriver() override;

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    bool showState() const override;
    bool initializationCompleted() override;
    bool deinitialize() override;

private:
    struct Settings {
        int interval = 1000;  ///< milliseconds
        float threshold = 0;  ///< of the load; 0 for none

        bool operator==(const Settings&) const = default;
    };

    struct Sample {
        std::optional<float> load;
        std::optional<int> freeMemory;
        std::optional<std::string> hostName;
        std::optional<bool> link;
    };

    bool setInterval(const FIDParameterList& parameters) const;
    bool setThreshold(const FIDParameterList& parameters) const;
    bool requestReport(const FIDParameterList& parameters) const;
    bool forward(const FIDParameterList& parameters) const;
    bool mark(const FIDParameterList& parameters) const;

    void run();
    void report(const Sample& sample, const Settings& settings, bool everything);
    void checkLoad(float load, float threshold);
    void stop();

    const SystemProbe m_probe;
    mutable mfd::CallGate m_gate;

    /// Guards the requests to the thread and its last sample; held for moments only.
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_wakeUp;
    mutable Settings m_settings;
    mutable bool m_reportRequested = false;
    mutable bool m_armed = true;  ///< the next load above the threshold raises the alarm
    bool m_stopping = false;
    Sample m_lastSample;

    /// The thread's own: what was reported last.
    std::optional<Sample> m_reported;
    Settings m_reportedSettings;

    std::thread m_thread;
};
