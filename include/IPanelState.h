#pragma once

#include <string>

#include "IInterface.h"

/// Takes state values and events. A driver gets one through IMFDConfiguration::setPanelStateInterface and may
/// call it from any thread until its deinitialize() returns; what it reports as "LAMP" reaches the panel as
/// driver ID + ".LAMP". Nothing comes back: a value that cannot be delivered is dropped by whoever finds out.
/// IDs and texts are kept under 256 bytes, since a driver may run in a process of its own.
class IPanelState : public virtual IInterface {
public:
    virtual void setStateValue(const std::string& stateID, const std::string& value) = 0;
    virtual void setStateValueFloat(const std::string& stateID, float value) = 0;
    virtual void setStateValueInt(const std::string& stateID, int value) = 0;
    virtual void setStateValueBool(const std::string& stateID, bool value) = 0;
    /// The value is no longer known.
    virtual void unsetStateValue(const std::string& stateID) = 0;
    /// Events are never merged, unlike values.
    virtual void triggerEvent(const std::string& eventID, const std::string& value) = 0;
};
