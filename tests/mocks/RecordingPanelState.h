#pragma once

#include <sstream>
#include <string>
#include <utility>

#include "IPanelState.h"
#include "Journal.h"

/// A panel-state target that notes each call under its name.
class RecordingPanelState : public IPanelState {
public:
    explicit RecordingPanelState(std::string name = "panel") : m_name(std::move(name)) {}

    IInterface* queryInterface(unsigned int) override { return nullptr; }

    void setStateValue(const std::string& stateID, const std::string& value) override {
        note("setStateValue " + stateID + " " + value);
    }
    void setStateValueFloat(const std::string& stateID, float value) override {
        std::ostringstream text;
        text << value;
        note("setStateValueFloat " + stateID + " " + text.str());
    }
    void setStateValueInt(const std::string& stateID, int value) override {
        note("setStateValueInt " + stateID + " " + std::to_string(value));
    }
    void setStateValueBool(const std::string& stateID, bool value) override {
        note("setStateValueBool " + stateID + (value ? " true" : " false"));
    }
    void unsetStateValue(const std::string& stateID) override { note("unsetStateValue " + stateID); }
    void triggerEvent(const std::string& eventID, const std::string& value) override {
        note("triggerEvent " + eventID + " " + value);
    }

private:
    void note(const std::string& call) { fakehost::Journal::instance().note(m_name + " " + call); }

    std::string m_name;
};
