#pragma once

#include <memory>
#include <string>

#include "CallGate.h"
#include "ILink.h"
#include "LinkSettings.h"
#include "LinkSite.h"
#include "MfdDriverBase.h"

/// Stands for another workplace: FIDs that it gets go there, the values and events of that workplace are its
/// own. Any function may be meant, so it declares none. Owned by the loader, in the host's process alone;
/// LinkSite's thread reports for it.
class LinkDriver : public MfdDriverBase, public ILink {
public:
    ~LinkDriver() override;

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    /// Reads its file. False, with a line for each fault, when there is one, and in a process of its own.
    bool initializationCompleted() override;
    bool deinitialize() override;

    const std::string& driverID() const override { return configuration().driverID; }
    const LinkSettings& settings() const override { return m_settings; }
    IPanelState& panel() const override { return *panelState(); }
    /// What is a warning or worse is the value LINK_ERROR, too.
    void say(sal::LogOutput::ELevel level, const std::string& text) const override;

private:
    void stop();

    LinkSettings m_settings;
    std::shared_ptr<LinkSite> m_pSite;
    mutable mfd::CallGate m_gate;
};
