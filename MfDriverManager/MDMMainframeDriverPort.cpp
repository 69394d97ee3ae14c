#include "MDMMainframeDriverPort.h"

#include <iostream>

#include "FIDParameterList.h"
#include "InterfaceIds.h"

MDMMainframeDriverPort::MDMMainframeDriverPort() = default;

MDMMainframeDriverPort::MDMMainframeDriverPort(const std::string& driverID) : m_driverID(driverID) {}

MDMMainframeDriverPort::~MDMMainframeDriverPort() {
    m_pFunctionID = nullptr;
    m_pPanelState = nullptr;
}

IInterface* MDMMainframeDriverPort::queryInterface(unsigned int id) {
    return id == IID_IPanelState ? static_cast<IPanelState*>(this) : nullptr;
}

void MDMMainframeDriverPort::setStateValue(const std::string& stateID, const std::string& value) {
    if (m_pPanelState)
        m_pPanelState->setStateValue(key(stateID), value);
}

void MDMMainframeDriverPort::setStateValueFloat(const std::string& stateID, float value) {
    if (m_pPanelState)
        m_pPanelState->setStateValueFloat(key(stateID), value);
}

void MDMMainframeDriverPort::setStateValueInt(const std::string& stateID, int value) {
    if (m_pPanelState)
        m_pPanelState->setStateValueInt(key(stateID), value);
}

void MDMMainframeDriverPort::setStateValueBool(const std::string& stateID, bool value) {
    if (m_pPanelState)
        m_pPanelState->setStateValueBool(key(stateID), value);
}

void MDMMainframeDriverPort::unsetStateValue(const std::string& stateID) {
    if (m_pPanelState)
        m_pPanelState->unsetStateValue(key(stateID));
}

void MDMMainframeDriverPort::triggerEvent(const std::string& eventID, const std::string& value) {
    if (m_pPanelState)
        m_pPanelState->triggerEvent(key(eventID), value);
}

bool MDMMainframeDriverPort::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    const MDMCallGate::Call<IFunctionID> driver(m_functionIDGate, m_pFunctionID);
    return driver ? driver->sendFID(fid, parameters) : false;
}

bool MDMMainframeDriverPort::subscribe(const std::string& fid) const {
    const MDMCallGate::Call<IFunctionID> driver(m_functionIDGate, m_pFunctionID);
    return driver ? driver->subscribe(fid) : false;
}

bool MDMMainframeDriverPort::showState() const {
    return true;
}

void MDMMainframeDriverPort::showPortState() const {
    std::cout << m_driverID << std::endl;
    const MDMCallGate::Call<IFunctionID> driver(m_functionIDGate, m_pFunctionID);
    if (driver)
        driver->showState();
}

void MDMMainframeDriverPort::setFunctionIDInterface(IFunctionID* pFunctionID) {
    MDMCallGate::store(m_pFunctionID, pFunctionID);
}

void MDMMainframeDriverPort::setPanelStateInterface(IPanelState* pPanelState) {
    m_pPanelState = pPanelState;
}

void MDMMainframeDriverPort::releaseFunctionID() {
    m_functionIDGate.close(m_pFunctionID);
}

std::string MDMMainframeDriverPort::key(const std::string& id) const {
    std::string text;
    text.reserve(m_driverID.size() + 1 + id.size());
    text.append(m_driverID).append(1, '.').append(id);
    return text;
}
