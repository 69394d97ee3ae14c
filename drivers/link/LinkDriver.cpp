#include "LinkDriver.h"

#include <filesystem>

#include "ILinkHost.h"
#include "LinkFile.h"

LinkDriver::~LinkDriver() {
    stop();
}

bool LinkDriver::initializationCompleted() {
    stop();
    auto* const pHost =
        system() ? dynamic_cast<ILinkHost*>(system()->queryInterface(ILinkHost::s_id)) : nullptr;
    if (!pHost || !panelState()) {
        log(sal::LogOutput::eError,
            "not started, a link runs in the host's process alone; interfaceType=\"direct\" would be right");
        return false;
    }
    const LinkFile file((std::filesystem::path(configuration().workingDirectory) / LinkFile::s_name).string(),
                        driverID());
    for (const Finding& finding : file.findings())
        log(finding.isError() ? sal::LogOutput::eError : sal::LogOutput::eWarning, finding.inWords());
    if (!file.settings())
        return false;
    m_settings = *file.settings();
    std::string error;
    m_pSite = LinkSite::of(m_settings, *pHost, error);
    if (!m_pSite) {
        log(sal::LogOutput::eError, "not started, " + error);
        return false;
    }
    m_pSite->add(*this);
    m_gate.open();
    return true;
}

bool LinkDriver::deinitialize() {
    stop();
    return true;
}

void LinkDriver::say(sal::LogOutput::ELevel level, const std::string& text) const {
    log(level, text);
    if (level <= sal::LogOutput::eWarning)
        panelState()->setStateValue("LINK_ERROR", text);
}

void LinkDriver::stop() {
    m_gate.close();
    if (!m_pSite)
        return;
    m_pSite->remove(*this);
    m_pSite.reset();
}

bool LinkDriver::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    const auto pass = m_gate.enter();
    // The core knows its links by their address, and changes nothing of them.
    return pass && m_pSite->send(const_cast<LinkDriver&>(*this), fid, parameters);
}
