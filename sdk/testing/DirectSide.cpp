#include "DirectSide.h"

#include <dlfcn.h>

#include <utility>

#include "InterfaceIds.h"
#include "NumberText.h"
#include "sal/ModuleLoader.h"

namespace mfd::testing {

DirectSide::DirectSide(std::string module, Story& story) : m_module(std::move(module)), m_story(story) {}

DirectSide::~DirectSide() {
    stop();
}

std::string DirectSide::start(const Configuration& configuration) {
    if (m_pModule)
        return "the driver runs already";
    m_pModule.reset(sal::ModuleLoader().load(sal::ModuleLoader::eLoadUnprobed, m_module));
    if (!m_pModule)
        return m_module + " could not be loaded; the log has the loader's words";
    m_pConfiguration = dynamic_cast<IMFDConfiguration*>(m_pModule->queryInterface(IID_IMFDConfiguration));
    m_pFunctionID = dynamic_cast<IFunctionID*>(m_pModule->queryInterface(IID_IFunctionID));
    if (!m_pConfiguration || !m_pFunctionID) {
        m_pModule.reset();
        return m_module + " answers not both driver interfaces, 1100 and 1201";
    }
    m_pConfiguration->setPanelStateInterface(this);
    m_pConfiguration->setSystemInterface(this);
    m_pConfiguration->setConfiguration(0, configuration.driverID, configuration.workingDirectory, "", "", "",
                                       configuration.nvramDirectory);
    return m_pConfiguration->initializationCompleted() ? "" : "initializationCompleted() has returned false";
}

std::string DirectSide::stop() {
    if (!m_pModule)
        return {};
    const bool isStopped = m_pConfiguration->deinitialize();
    m_pModule.reset();
    if (!isStopped)
        return "deinitialize() has returned false";
    // The loader has said why.
    if (void* pHandle = ::dlopen(m_module.c_str(), RTLD_NOW | RTLD_NOLOAD)) {
        ::dlclose(pHandle);
        return "its code stays mapped: a reload would go on with it";
    }
    return {};
}

std::string DirectSide::kill() {
    return "a driver in the test's process has no process to be killed";
}

std::string DirectSide::refuseFids(bool refused) {
    m_refuses = refused;
    return {};
}

bool DirectSide::send(const std::string& fid, const FIDParameterList& parameters) {
    return m_pModule && m_pFunctionID->sendFID(fid, parameters);
}

IInterface* DirectSide::queryInterface(unsigned int id) {
    return id == IID_IFunctionID ? static_cast<IFunctionID*>(this) : nullptr;
}

void DirectSide::setStateValue(const std::string& stateID, const std::string& value) {
    m_story.addState(stateID, value);
}

void DirectSide::setStateValueFloat(const std::string& stateID, float value) {
    m_story.addState(stateID, numberText(value));
}

void DirectSide::setStateValueInt(const std::string& stateID, int value) {
    m_story.addState(stateID, numberText(value));
}

void DirectSide::setStateValueBool(const std::string& stateID, bool value) {
    m_story.addState(stateID, value ? "true" : "false");
}

void DirectSide::unsetStateValue(const std::string& stateID) {
    m_story.addUnset(stateID);
}

void DirectSide::triggerEvent(const std::string& eventID, const std::string& value) {
    m_story.addEvent(eventID, value);
}

void DirectSide::executeCommand(const std::string& command, const std::string& arguments) {
    m_story.add("command " + command + (arguments.empty() ? "" : " " + arguments));
}

bool DirectSide::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    m_story.addFid(m_refuses ? "refused" : "send", fid, parameters);
    return !m_refuses;
}

}  // namespace mfd::testing
