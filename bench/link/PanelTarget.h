#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include "IPanelState.h"
#include "UpdateCheck.h"

/// The panel as a measurement sees it: checks each update of the drivers "D00" to "D63" and counts; holds
/// them up when asked to. Each driver's updates come on one thread, the driver's own receiving one;
/// everything else is called by the measuring thread.
class PanelTarget : public IPanelState {
public:
    static constexpr std::size_t s_drivers = 64;
    static std::string driverID(std::size_t driver) {
        return std::string("D") + static_cast<char>('0' + driver / 10) + static_cast<char>('0' + driver % 10);
    }

    /// What the event "DONE" of a driver says.
    struct Report {
        std::int64_t time = 0;
        std::uint64_t wrong = 0;
    };

    /// The next work of a driver, before it is told to begin; the gate is for a job in bursts.
    void expect(std::size_t driver, const Job& job, BurstGate* pGate = nullptr);
    /// Until the driver has said that it is done and its updates were all here. Throws when something was
    /// wrong, or when it takes longer than so many seconds.
    Report waitFor(std::size_t driver, int seconds);
    /// Whether the updates of D00 were all here; for a receiver without reports.
    bool isComplete() const { return m_inboxes[0].check.complete(); }
    const UpdateCheck& check(std::size_t driver) const { return m_inboxes[driver].check; }

    /// From now on each update waits in here.
    void stop();
    void goOn();

    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void setStateValue(const std::string& id, const std::string& value) override;
    void setStateValueFloat(const std::string&, float) override {}
    void setStateValueInt(const std::string& id, int value) override;
    void setStateValueBool(const std::string&, bool) override {}
    void unsetStateValue(const std::string&) override {}
    void triggerEvent(const std::string& id, const std::string& value) override;

private:
    struct alignas(128) Inbox {
        UpdateCheck check;
        bool isDone = false;  ///< with the mutex
        Report report;        ///< with the mutex
    };

    /// Null when the value is no driver's.
    Inbox* inboxOf(const std::string& id);

    std::array<Inbox, s_drivers> m_inboxes;
    std::atomic<bool> m_isStopped = false;
    std::mutex m_mutex;
    std::condition_variable m_changed;
};
