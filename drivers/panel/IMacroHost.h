#pragma once

#include <optional>
#include <string>
#include <vector>

#include "FIDParameterList.h"
#include "sal/LogOutput.h"

/// What an operator sees of the macro system.
struct MacroState {
    enum class EActivity { Idle, Recording, Playing };

    EActivity activity = EActivity::Idle;
    std::string name;                ///< of the macro that is recorded or played
    int steps = 0;                   ///< recorded or sent so far
    std::vector<std::string> names;  ///< of all macros, in byte order
    bool unsaved = false;            ///< whether something would be lost without a save

    bool operator==(const MacroState&) const = default;
};

/// What the macro system needs of the driver that owns it. No lock is held during a call.
class IMacroHost {
public:
    /// Sends a whole FID. On the macro system's thread. False when it could not be sent.
    virtual bool sendMacroFid(const std::string& fid, const FIDParameterList& parameters) = 0;
    /// The state changed; previous is what was shown last, nothing at first. On the macro system's thread;
    /// step counts alone come some times a second at most.
    virtual void showMacroState(const MacroState& state, const std::optional<MacroState>& previous) = 0;
    /// "MACRO.RECORDED", "MACRO.PLAYED" or "MACRO.STOPPED" (played in part) with the macro's name. On the
    /// macro system's thread.
    virtual void macroEvent(const std::string& eventID, const std::string& name) = 0;
    /// One line for the log. Any thread.
    virtual void macroLog(sal::LogOutput::ELevel level, const std::string& text) = 0;

protected:
    ~IMacroHost() = default;
};
