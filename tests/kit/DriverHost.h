#pragma once

#include <atomic>
#include <functional>
#include <sstream>
#include <string>

#include "CallLog.h"
#include "FIDParameterList.h"
#include "IFunctionID.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "InterfaceIds.h"

/// The host as a driver sees it: notes what the driver reports ("LOAD float 2.5", "event ALARM text") and
/// sends ("send PANEL.ALARM source=SYS").
class DriverHost : public IPanelState, public ISystem, public IFunctionID {
public:
    mutable CallLog calls;
    /// Called in each sendFID after it was noted.
    std::function<void(const std::string& fid)> onSend;
    std::atomic<bool> sendResult{true};

    IInterface* queryInterface(unsigned int id) override {
        if (id == IID_IFunctionID)
            return static_cast<IFunctionID*>(this);
        return nullptr;
    }

    void setStateValue(const std::string& stateID, const std::string& value) override {
        calls.add(stateID + " string " + value);
    }
    void setStateValueFloat(const std::string& stateID, float value) override {
        std::ostringstream text;
        text << value;
        calls.add(stateID + " float " + text.str());
    }
    void setStateValueInt(const std::string& stateID, int value) override {
        calls.add(stateID + " int " + std::to_string(value));
    }
    void setStateValueBool(const std::string& stateID, bool value) override {
        calls.add(stateID + (value ? " bool true" : " bool false"));
    }
    void unsetStateValue(const std::string& stateID) override { calls.add(stateID + " unset"); }
    void triggerEvent(const std::string& eventID, const std::string& value) override {
        calls.add("event " + eventID + " " + value);
    }

    void executeCommand(const std::string& command, const std::string& arguments) override {
        calls.add("command " + command + " " + arguments);
    }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        std::ostringstream text;
        text << parameters;
        calls.add("send " + fid + " " + text.str());
        if (onSend)
            onSend(fid);
        return sendResult;
    }
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }
};
