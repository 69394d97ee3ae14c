#include "PanelDriver.h"

#include <iostream>
#include <string_view>
#include <vector>

#include "Printable.h"

namespace {

constexpr std::size_t s_maxText = 255;
constexpr std::string_view s_etCetera = ", ...";

/// As many whole names as a state value holds.
std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string separator = text.empty() ? "" : ", ";
        const std::size_t reserve = i + 1 < names.size() ? s_etCetera.size() : 0;
        if (text.size() + separator.size() + names[i].size() + reserve > s_maxText)
            return text.append(s_etCetera);
        text += separator + names[i];
    }
    return text;
}

const char* wordFor(MacroState::EActivity activity) {
    switch (activity) {
        case MacroState::EActivity::Recording:
            return "recording";
        case MacroState::EActivity::Playing:
            return "playing";
        default:
            return "idle";
    }
}

}  // namespace

PanelDriver::PanelDriver() : m_pMacroSystem(std::make_unique<MacroSystem>(static_cast<IMacroHost&>(*this))) {}

PanelDriver::~PanelDriver() = default;

IInterface* PanelDriver::queryInterface(unsigned int id) {
    if (IInterface* pInterface = m_pMacroSystem->queryInterface(id))
        return pInterface;
    return MfdDriverBase::queryInterface(id);
}

bool PanelDriver::initializationCompleted() {
    if (!panelState()) {
        log(sal::LogOutput::eError, "not started, there is nowhere to show anything");
        return false;
    }
    if (!m_pMacroSystem->start(configuration().driverID, configuration().nvramDirectory))
        return false;
    m_gate.open();
    return true;
}

bool PanelDriver::deinitialize() {
    m_gate.close();
    m_pMacroSystem->stop();
    return true;
}

bool PanelDriver::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    static const mfd::FunctionTable<PanelDriver>::Function s_functions[] = {
        {"ALARM", &PanelDriver::showAlarm, {"source", "text"}},
        {"ALARM.CLEAR", &PanelDriver::clearAlarm},
        {"DRIVER", &PanelDriver::showDriver, {"id", "state"}},
        {"MACRO.CANCEL", &PanelDriver::cancelMacro},
        {"MACRO.DELETE", &PanelDriver::deleteMacro, {"name"}},
        {"MACRO.LOAD", &PanelDriver::loadMacros},
        {"MACRO.PLAY", &PanelDriver::playMacro, {"name"}},
        {"MACRO.RECORD", &PanelDriver::recordMacro, {"name"}},
        {"MACRO.RENAME", &PanelDriver::renameMacro, {"from", "to"}},
        {"MACRO.SAVE", &PanelDriver::saveMacros},
        {"MACRO.STOP", &PanelDriver::stopMacro},
    };
    const auto pass = m_gate.enter();
    return pass && callFunction<PanelDriver>(s_functions, fid, parameters);
}

bool PanelDriver::showState() const {
    const auto pass = m_gate.enter();
    if (!pass)
        return false;
    const MacroState state = m_pMacroSystem->state();
    std::cout << "macro system " << wordFor(state.activity)
              << (state.name.empty() ? "" : " \"" + base::printable(state.name) + '"') << ", "
              << state.names.size() << " macros" << (state.unsaved ? ", not all saved" : "") << std::endl;
    return true;
}

bool PanelDriver::recordMacro(const FIDParameterList& parameters) const {
    return m_pMacroSystem->startRecording(parameters.value("name"));
}

bool PanelDriver::stopMacro(const FIDParameterList&) const {
    switch (m_pMacroSystem->state().activity) {
        case MacroState::EActivity::Recording:
            return m_pMacroSystem->stopRecording();
        case MacroState::EActivity::Playing:
            return m_pMacroSystem->stopPlaying();
        default:
            log(sal::LogOutput::eWarning, "MACRO.STOP ignored, no macro is being recorded or played");
            return false;
    }
}

bool PanelDriver::cancelMacro(const FIDParameterList&) const {
    return m_pMacroSystem->cancelRecording();
}

bool PanelDriver::playMacro(const FIDParameterList& parameters) const {
    return m_pMacroSystem->play(parameters.value("name"));
}

bool PanelDriver::deleteMacro(const FIDParameterList& parameters) const {
    return m_pMacroSystem->remove(parameters.value("name"));
}

bool PanelDriver::renameMacro(const FIDParameterList& parameters) const {
    return m_pMacroSystem->rename(parameters.value("from"), parameters.value("to"));
}

bool PanelDriver::saveMacros(const FIDParameterList&) const {
    return m_pMacroSystem->save();
}

bool PanelDriver::loadMacros(const FIDParameterList&) const {
    return m_pMacroSystem->load();
}

bool PanelDriver::showAlarm(const FIDParameterList& parameters) const {
    const std::string text =
        (parameters.value("source") + ": " + parameters.value("text")).substr(0, s_maxText);
    log(sal::LogOutput::eWarning, "alarm from " + text);
    panelState()->setStateValue("ALARM", text);
    panelState()->triggerEvent("ALARM", text);
    return true;
}

bool PanelDriver::showDriver(const FIDParameterList& parameters) const {
    const std::string cause = parameters.value("cause");
    panelState()->setStateValue(
        "DRIVER." + parameters.value("id"),
        (parameters.value("state") + (cause.empty() ? "" : ": " + cause)).substr(0, s_maxText));
    return true;
}

bool PanelDriver::clearAlarm(const FIDParameterList&) const {
    panelState()->unsetStateValue("ALARM");
    return true;
}

bool PanelDriver::sendMacroFid(const std::string& fid, const FIDParameterList& parameters) {
    return sendToDriver(fid, parameters);
}

void PanelDriver::showMacroState(const MacroState& state, const std::optional<MacroState>& previous) {
    if (!previous || previous->name != state.name)
        panelState()->setStateValue("MACRO.NAME", state.name);
    if (!previous || previous->steps != state.steps)
        panelState()->setStateValueInt("MACRO.STEPS", state.steps);
    if (!previous || previous->names != state.names) {
        panelState()->setStateValueInt("MACRO.COUNT", static_cast<int>(state.names.size()));
        panelState()->setStateValue("MACRO.NAMES", joined(state.names));
    }
    if (!previous || previous->unsaved != state.unsaved)
        panelState()->setStateValueBool("MACRO.UNSAVED", state.unsaved);
    // Last, so that who waits for it finds the others settled.
    if (!previous || previous->activity != state.activity)
        panelState()->setStateValue("MACRO.STATE", wordFor(state.activity));
}

void PanelDriver::macroEvent(const std::string& eventID, const std::string& name) {
    panelState()->triggerEvent(eventID, name);
}

void PanelDriver::macroLog(sal::LogOutput::ELevel level, const std::string& text) {
    log(level, text);
}
