#pragma once

#include <string>

#include "DriverOutput.h"
#include "IPanelState.h"

/// The panel state as the driver sees it: each call becomes a message to the host. Owned by DriverProcess;
/// any thread of the driver.
class QueuePanelState : public IPanelState {
public:
    explicit QueuePanelState(DriverOutput& output);

    IInterface* queryInterface(unsigned int id) override;

    void setStateValue(const std::string& stateID, const std::string& value) override;
    void setStateValueFloat(const std::string& stateID, float value) override;
    void setStateValueInt(const std::string& stateID, int value) override;
    void setStateValueBool(const std::string& stateID, bool value) override;
    void unsetStateValue(const std::string& stateID) override;
    void triggerEvent(const std::string& eventID, const std::string& value) override;

private:
    DriverOutput& m_output;
};
