#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "IDriverSide.h"
#include "IFunctionID.h"
#include "IMFDConfiguration.h"
#include "IPanelState.h"
#include "ISystem.h"
#include "Story.h"
#include "sal/Module.h"

namespace mfd::testing {

/// The driver in the test's process, and the host as it sees it there.
class DirectSide final : public IDriverSide, private IPanelState, private ISystem, private IFunctionID {
public:
    DirectSide(std::string module, Story& story);
    ~DirectSide() override;

    std::string start(const Configuration& configuration) override;
    std::string stop() override;
    std::string kill() override;
    std::string refuseFids(bool refused) override;
    bool send(const std::string& fid, const FIDParameterList& parameters) override;
    bool isRunning() const override { return m_pModule != nullptr; }

private:
    IInterface* queryInterface(unsigned int id) override;
    void setStateValue(const std::string& stateID, const std::string& value) override;
    void setStateValueFloat(const std::string& stateID, float value) override;
    void setStateValueInt(const std::string& stateID, int value) override;
    void setStateValueBool(const std::string& stateID, bool value) override;
    void unsetStateValue(const std::string& stateID) override;
    void triggerEvent(const std::string& eventID, const std::string& value) override;
    void executeCommand(const std::string& command, const std::string& arguments) override;
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    bool subscribe(const std::string&) const override { return true; }
    bool showState() const override { return true; }

    const std::string m_module;
    Story& m_story;
    std::atomic<bool> m_refuses{false};
    std::unique_ptr<sal::Module> m_pModule;
    IMFDConfiguration* m_pConfiguration = nullptr;
    IFunctionID* m_pFunctionID = nullptr;
};

}  // namespace mfd::testing
