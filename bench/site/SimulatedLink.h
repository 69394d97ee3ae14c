#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "Delays.h"
#include "ILink.h"
#include "IPanelState.h"
#include "LinkSettings.h"
#include "SimulatedHost.h"
#include "ValueNames.h"

/// One link of a simulated workplace, with the panel to which it reports: knows which of the far workplace's
/// values are live here, and how long each change and each FID took. Its site's thread reports; the others'
/// calls may come on any thread.
class SimulatedLink : public ILink, public IPanelState {
public:
    SimulatedLink(LinkSettings settings, const ValueNames& names);

    /// The workplace at the other side, which lies in this process as well; null for none.
    void setFar(const SimulatedHost* pFar) { m_pFar = pFar; }
    /// Up, and each value of the other side is live.
    bool isComplete() const { return m_isUp && m_live == m_names.size(); }
    std::size_t live() const { return m_live; }
    /// A value of the other side has come, and is live. The site's thread.
    void take(const std::string& key, const ILinkHost::Value& value);
    void makeStale(const std::string& key);
    /// A FID is about to be sent.
    void noteSent();
    /// What was measured since the last call.
    Delays takeDelays();

    const std::string& driverID() const override { return m_settings.farSite; }
    const LinkSettings& settings() const override { return m_settings; }
    IPanelState& panel() const override { return const_cast<SimulatedLink&>(*this); }
    void say(sal::LogOutput::ELevel, const std::string&) const override {}

    IInterface* queryInterface(unsigned int) override { return nullptr; }
    void setStateValue(const std::string& stateID, const std::string& value) override;
    void setStateValueFloat(const std::string&, float) override {}
    void setStateValueInt(const std::string&, int) override {}
    void setStateValueBool(const std::string&, bool) override {}
    void unsetStateValue(const std::string& stateID) override { makeStale(stateID); }
    void triggerEvent(const std::string& eventID, const std::string& value) override;

private:
    void report(const std::string& key, std::uint32_t number);

    const LinkSettings m_settings;
    const ValueNames& m_names;
    const SimulatedHost* m_pFar = nullptr;
    std::atomic<bool> m_isUp = false;
    std::atomic<std::size_t> m_live = 0;
    std::vector<bool> m_isLive;            ///< of the site's thread
    std::vector<std::uint32_t> m_numbers;  ///< of the site's thread
    std::mutex m_mutex;
    std::deque<std::int64_t> m_sent;
    Delays m_delays;
};
