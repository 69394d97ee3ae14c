#include "SimulatedWorkplace.h"

#include <algorithm>
#include <utility>

#include "FIDParameterList.h"

SimulatedWorkplace::SimulatedWorkplace(const ValueNames& names, std::vector<LinkSettings> links)
    : m_host(
          names,
          [this](const std::string& driverID, const std::string& key, const ILinkHost::Value& value) {
              take(driverID, key, value);
          },
          [this](const std::string& driverID, const std::string& key) { makeStale(driverID, key); }) {
    for (LinkSettings& settings : links)
        m_links.push_back(std::make_unique<SimulatedLink>(std::move(settings), names));
}

void SimulatedWorkplace::stop() {
    for (const auto& pLink : m_links) {
        if (m_pSite)
            m_pSite->remove(*pLink);
    }
    m_pSite.reset();
}

std::vector<LinkSettings> SimulatedWorkplace::settings() const {
    std::vector<LinkSettings> settings;
    for (const auto& pLink : m_links)
        settings.push_back(pLink->settings());
    return settings;
}

void SimulatedWorkplace::start() {
    m_pSite = std::make_unique<LinkSite>(m_links.front()->settings(), m_host);
    for (const auto& pLink : m_links)
        m_pSite->add(*pLink);
}

void SimulatedWorkplace::sendFid(std::size_t link, const std::string& fid) {
    FIDParameterList parameters;
    parameters.add("percent", "40");
    m_links[link]->noteSent();
    static_cast<void>(m_pSite->send(*m_links[link], fid, parameters));
}

bool SimulatedWorkplace::isComplete() const {
    return std::all_of(m_links.begin(), m_links.end(), [](const auto& pLink) { return pLink->isComplete(); });
}

std::size_t SimulatedWorkplace::live() const {
    std::size_t live = 0;
    for (const auto& pLink : m_links)
        live += pLink->live();
    return live;
}

Delays SimulatedWorkplace::takeDelays() {
    Delays delays;
    for (const auto& pLink : m_links)
        delays.add(pLink->takeDelays());
    return delays;
}

void SimulatedWorkplace::take(const std::string& driverID, const std::string& key,
                              const ILinkHost::Value& value) {
    for (const auto& pLink : m_links) {
        if (pLink->driverID() == driverID)
            pLink->take(key, value);
    }
}

void SimulatedWorkplace::makeStale(const std::string& driverID, const std::string& key) {
    for (const auto& pLink : m_links) {
        if (pLink->driverID() == driverID)
            pLink->makeStale(key);
    }
}
