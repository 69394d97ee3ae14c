#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Delays.h"
#include "LinkSettings.h"
#include "LinkSite.h"
#include "SimulatedHost.h"
#include "SimulatedLink.h"
#include "ValueNames.h"

/// A workplace with links to others, as its broker sees it: the link driver's own code with its thread, its
/// connection, ticks, birth and will, on a host that is simulated. Owned and called by Fleet's thread.
class SimulatedWorkplace {
public:
    /// Says nothing to the broker before start().
    SimulatedWorkplace(const ValueNames& names, std::vector<LinkSettings> links);
    ~SimulatedWorkplace() { stop(); }
    SimulatedWorkplace(const SimulatedWorkplace&) = delete;
    SimulatedWorkplace& operator=(const SimulatedWorkplace&) = delete;

    const SimulatedHost& host() const { return m_host; }
    std::vector<LinkSettings> settings() const;
    /// In the order of the links.
    void setFar(std::size_t link, const SimulatedHost& far) { m_links[link]->setFar(&far); }
    void start();
    /// Says goodbye to the broker; no thread of it is left when it returns.
    void stop();

    void change(std::size_t place) { m_host.change(place); }
    /// To the far workplace of that link; one that the link refuses counts as not done.
    void sendFid(std::size_t link, const std::string& fid);
    bool isComplete() const;
    std::size_t live() const;
    Delays takeDelays();

private:
    void take(const std::string& driverID, const std::string& key, const ILinkHost::Value& value);
    void makeStale(const std::string& driverID, const std::string& key);

    SimulatedHost m_host;
    std::vector<std::unique_ptr<SimulatedLink>> m_links;
    std::unique_ptr<LinkSite> m_pSite;
};
