#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "InterfaceIds.h"
#include "Journal.h"
#include "RecordingParameters.h"

/// A driver as a module makes it: notes each call of the loader and the distributor under its name, and its
/// end. What it answers to an identifier can be changed.
class RecordingDriver : public IFunctionID, public IMFDConfiguration {
public:
    explicit RecordingDriver(std::string name) : m_name(std::move(name)) {}
    ~RecordingDriver() override {
        note("gone");
        if (onGone)
            onGone();
    }

    IInterface* queryInterface(unsigned int id) override {
        const auto other = answers.find(id);
        if (other != answers.end())
            return other->second;
        switch (id) {
            case IID_IFunctionID:
                return static_cast<IFunctionID*>(this);
            case IID_IMFDConfiguration:
                return static_cast<IMFDConfiguration*>(this);
            default:
                return nullptr;
        }
    }

    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        return note("sendFID " + fid + " " + recorded(parameters));
    }
    bool subscribe(const std::string& fid) const override { return note("subscribe " + fid); }
    bool showState() const override { return note("showState"); }

    bool setConfiguration(int workplaceId, const std::string& driverID, const std::string& workingDirectory,
                          const std::string& ipAddress, const std::string& networkAdapter,
                          const std::string& virtualPanelAddress,
                          const std::string& nvramDirectory) override {
        return note("setConfiguration " + std::to_string(workplaceId) + " [" + driverID + "] [" +
                    workingDirectory + "] [" + ipAddress + "] [" + networkAdapter + "] [" +
                    virtualPanelAddress + "] [" + nvramDirectory + "]");
    }
    void setPanelStateInterface(IPanelState* pInterface) override {
        pPanelState = pInterface;
        note("setPanelStateInterface");
    }
    void setDistributorFIDInterface(IDistributorFID* pInterface) override {
        pDistributorFID = pInterface;
        note("setDistributorFIDInterface");
    }
    void setSystemInterface(ISystem* pInterface) override {
        pSystem = pInterface;
        note("setSystemInterface");
    }
    bool initializationCompleted() override { return note("initializationCompleted"); }
    bool deinitialize() override {
        note("deinitialize");
        if (onDeinitialize)
            onDeinitialize();
        return result;
    }
    bool createFIDList() override { return note("createFIDList"); }

    /// Answers that replace the driver's own.
    std::map<unsigned int, IInterface*> answers;
    std::function<void()> onDeinitialize;
    std::function<void()> onGone;
    bool result = true;

    IPanelState* pPanelState = nullptr;
    IDistributorFID* pDistributorFID = nullptr;
    ISystem* pSystem = nullptr;

private:
    bool note(const std::string& call) const {
        fakehost::Journal::instance().note(m_name + " " + call);
        return result;
    }

    std::string m_name;
};
