// A panel driver: answers IPanelSettings, IPanelMFD and IMacroSystem besides the two of every driver, and
// records the FIDs that its macro system is told of.
#include <sstream>

#include "IMacroSystem.h"
#include "IPanelMFD.h"
#include "IPanelSettings.h"
#include "MfdDriver.h"
#include "MfdDriverBase.h"
#include "Record.h"

namespace {

class Macros : public IMacroSystem {
public:
    IInterface* queryInterface(unsigned int id) override { return id == IID_IMacroSystem ? this : nullptr; }
    bool startRecording(const std::string&) override { return false; }
    bool stopRecording() override { return false; }
    bool cancelRecording() override { return false; }
    bool isRecording() const override { return false; }
    bool play(const std::string&) override { return false; }
    bool stopPlaying() override { return false; }
    bool isPlaying() const override { return false; }
    std::vector<std::string> macroNames() const override { return {}; }
    std::vector<MacroStep> macroSteps(const std::string&) const override { return {}; }
    bool remove(const std::string&) override { return false; }
    bool rename(const std::string&, const std::string&) override { return false; }
    bool load() override { return true; }
    bool save() override { return true; }
    void fidDispatched(const std::string& fid, const FIDParameterList& parameters) override {
        std::ostringstream line;
        line << "fidDispatched " << fid << (parameters.empty() ? "" : " ") << parameters;
        recordLine(line.str());
    }
};

class IsPanel : public MfdDriverBase, public IPanelSettings, public IPanelMFD {
public:
    IInterface* queryInterface(unsigned int id) override {
        switch (id) {
            case IID_IPanelSettings:
                return static_cast<IPanelSettings*>(this);
            case IID_IPanelMFD:
                return static_cast<IPanelMFD*>(this);
            case IID_IMacroSystem:
                return &m_macros;
            default:
                return MfdDriverBase::queryInterface(id);
        }
    }
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override {
        std::ostringstream line;
        line << "sendFID " << fid << (parameters.empty() ? "" : " ") << parameters;
        return recordLine(line.str());
    }

private:
    Macros m_macros;
};

}  // namespace

MFD_DRIVER(IsPanel);
