#pragma once

#include <optional>
#include <string>

#include "SystemProbe.h"
#include "mfd/Driver.h"

/// Watches the machine it runs on: load, free memory, host name, network link; raises an alarm at the panel
/// when the load crosses a threshold. Runs in the host's process or in one of its own; the loader or the
/// wrapper owns it. Several may live in one process. Its thread samples and reports; FORWARD and MARK come on
/// any thread and share nothing with it.
class SysMonDriver : public mfd::Driver {
public:
    explicit SysMonDriver(SystemProbe::Paths paths = {});

    bool showState() const override;

private:
    bool start() override;
    void measureFromNowOn();
    /// All states are reported anew where they are asked for; LOAD is with each sample.
    void measure(bool everything = false);
    template <class Type>
    void show(mfd::State<Type>& state, const std::optional<Type>& value, bool again);
    void checkLoad(float load);
    mfd::Answer forward(const mfd::Arguments& arguments) const;

    const SystemProbe m_probe;
    mfd::State<int> m_interval{*this, "INTERVAL", 1000};  ///< milliseconds
    mfd::State<float> m_threshold{*this, "THRESHOLD", 0.0F};
    mfd::State<std::string> m_hostName{*this, "HOSTNAME"};
    mfd::State<int> m_freeMemory{*this, "MEMFREE"};
    mfd::State<bool> m_link{*this, "LINK"};
    mfd::State<float> m_load{*this, "LOAD"};
    mfd::State<std::string> m_mark{*this, "MARK"};
    const mfd::Event m_loadHigh{*this, "LOADHIGH"};

    unsigned m_timer = 0;
    bool m_hasMeasured = false;
    bool m_armed = true;  ///< the next load above the threshold raises the alarm
};
