#pragma once

#include <string>

#include "IPanelState.h"
#include "LinkSettings.h"
#include "sal/LogOutput.h"

/// One link, as LinkCore serves it: a driver of the host. Called with the core's lock held.
class ILink {
public:
    virtual ~ILink() = default;

    virtual const std::string& driverID() const = 0;
    virtual const LinkSettings& settings() const = 0;
    virtual IPanelState& panel() const = 0;
    virtual void say(sal::LogOutput::ELevel level, const std::string& text) const = 0;
};
