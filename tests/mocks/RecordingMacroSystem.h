#pragma once

#include <string>
#include <vector>

#include "IMacroSystem.h"
#include "Journal.h"
#include "RecordingParameters.h"

/// A macro system that notes the FIDs it is told of, and as a fault every other call.
class RecordingMacroSystem : public IMacroSystem {
public:
    IInterface* queryInterface(unsigned int) override { return nullptr; }

    bool startRecording(const std::string&) override { return unexpected("startRecording"); }
    bool stopRecording() override { return unexpected("stopRecording"); }
    bool cancelRecording() override { return unexpected("cancelRecording"); }
    bool isRecording() const override { return unexpected("isRecording"); }
    bool play(const std::string&) override { return unexpected("play"); }
    bool stopPlaying() override { return unexpected("stopPlaying"); }
    bool isPlaying() const override { return unexpected("isPlaying"); }
    std::vector<std::string> macroNames() const override {
        unexpected("macroNames");
        return {};
    }
    std::vector<MacroStep> macroSteps(const std::string&) const override {
        unexpected("macroSteps");
        return {};
    }
    bool remove(const std::string&) override { return unexpected("remove"); }
    bool rename(const std::string&, const std::string&) override { return unexpected("rename"); }
    bool load() override { return unexpected("load"); }
    bool save() override { return unexpected("save"); }
    void fidDispatched(const std::string& fid, const FIDParameterList& parameters) override {
        fakehost::Journal::instance().note("macro fidDispatched " + fid + " " + recorded(parameters));
    }

private:
    static bool unexpected(const std::string& operation) {
        fakehost::Journal::instance().note("macro " + operation);
        return false;
    }
};
