#include "QueuePanelState.h"

#include "InterfaceIds.h"
#include "MessageWriter.h"

QueuePanelState::QueuePanelState(DriverOutput& output) : m_output(output) {}

IInterface* QueuePanelState::queryInterface(unsigned int id) {
    return id == IID_IPanelState ? this : nullptr;
}

void QueuePanelState::setStateValue(const std::string& stateID, const std::string& value) {
    m_output.send(protocol::MessageWriter(protocol::setStateValue).string(stateID).string(value));
}

void QueuePanelState::setStateValueFloat(const std::string& stateID, float value) {
    m_output.send(protocol::MessageWriter(protocol::setStateValueFloat).string(stateID).float32(value));
}

void QueuePanelState::setStateValueInt(const std::string& stateID, int value) {
    m_output.send(protocol::MessageWriter(protocol::setStateValueInt).string(stateID).int32(value));
}

void QueuePanelState::setStateValueBool(const std::string& stateID, bool value) {
    m_output.send(protocol::MessageWriter(protocol::setStateValueBool).string(stateID).bool8(value));
}

void QueuePanelState::unsetStateValue(const std::string& stateID) {
    m_output.send(protocol::MessageWriter(protocol::unsetStateValue).string(stateID));
}

void QueuePanelState::triggerEvent(const std::string& eventID, const std::string& value) {
    m_output.send(protocol::MessageWriter(protocol::triggerEvent).string(eventID).string(value));
}
