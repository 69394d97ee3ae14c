#pragma once

#include <memory>
#include <optional>
#include <string>

#include "CallGate.h"
#include "IMacroHost.h"
#include "MacroSystem.h"
#include "MfdDriverBase.h"

/// The driver "PANEL": records and plays macros and shows alarms. Lives in the host's process; the loader
/// owns it. Answers IID_IMacroSystem besides the two interfaces of every driver. Panel settings and the
/// panel's own face it does not answer: it has no operations to offer there. FIDs come on any thread; the
/// macro system's thread shows the "MACRO..." values.
class PanelDriver : public MfdDriverBase, private IMacroHost {
public:
    PanelDriver();
    ~PanelDriver() override;

    IInterface* queryInterface(unsigned int id) override;
    bool sendFID(const std::string& fid, const FIDParameterList& parameters) const override;
    bool showState() const override;
    bool initializationCompleted() override;
    bool deinitialize() override;

private:
    bool recordMacro(const FIDParameterList& parameters) const;
    bool stopMacro(const FIDParameterList& parameters) const;
    bool cancelMacro(const FIDParameterList& parameters) const;
    bool playMacro(const FIDParameterList& parameters) const;
    bool deleteMacro(const FIDParameterList& parameters) const;
    bool renameMacro(const FIDParameterList& parameters) const;
    bool saveMacros(const FIDParameterList& parameters) const;
    bool loadMacros(const FIDParameterList& parameters) const;
    bool showAlarm(const FIDParameterList& parameters) const;
    bool showDriver(const FIDParameterList& parameters) const;
    bool clearAlarm(const FIDParameterList& parameters) const;

    bool sendMacroFid(const std::string& fid, const FIDParameterList& parameters) override;
    void showMacroState(const MacroState& state, const std::optional<MacroState>& previous) override;
    void macroEvent(const std::string& eventID, const std::string& name) override;
    void macroLog(sal::LogOutput::ELevel level, const std::string& text) override;

    mutable mfd::CallGate m_gate;
    /// Last, so that its thread is gone before anything that it uses.
    std::unique_ptr<MacroSystem> m_pMacroSystem;
};
