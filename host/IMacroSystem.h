#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "FIDParameterList.h"
#include "IInterface.h"

/// One recorded FID of a macro.
struct MacroStep {
    std::chrono::milliseconds offset{};  ///< since the recording began
    std::string fid;                     ///< whole, with the driver ID
    FIDParameterList parameters;
};

/// Macros: sequences of FIDs with their times. Implemented by the panel driver; the distributor tells it of
/// every FID. Slot order is ABI; fidDispatched is the fourteenth. Any thread.
class IMacroSystem : public IInterface {
public:
    /// False when a recording or a playback is going on or the name is empty.
    virtual bool startRecording(const std::string& name) = 0;
    /// Keeps what was recorded under its name. False when nothing is being recorded.
    virtual bool stopRecording() = 0;
    /// Drops what was recorded. False when nothing is being recorded.
    virtual bool cancelRecording() = 0;
    virtual bool isRecording() const = 0;
    /// Sends the macro's FIDs at their recorded times, on a thread of the macro system. False when the macro
    /// is unknown, or a recording or a playback is going on.
    virtual bool play(const std::string& name) = 0;
    /// False when nothing is being played.
    virtual bool stopPlaying() = 0;
    virtual bool isPlaying() const = 0;
    /// In byte order.
    virtual std::vector<std::string> macroNames() const = 0;
    /// Empty for an unknown name.
    virtual std::vector<MacroStep> macroSteps(const std::string& name) const = 0;
    /// False when there is none of that name.
    virtual bool remove(const std::string& name) = 0;
    /// False when there is no macro from, or one of the name to already, or to is empty.
    virtual bool rename(const std::string& from, const std::string& to) = 0;
    /// Reads the kept macros again, dropping what was not saved. False when they cannot be read.
    virtual bool load() = 0;
    /// False when they cannot be written.
    virtual bool save() = 0;
    /// A FID was dispatched; told before it is routed, whether or not a driver takes it.
    virtual void fidDispatched(const std::string& fid, const FIDParameterList& parameters) = 0;
};
