#include "QueueSystem.h"

#include "InterfaceIds.h"
#include "MessageWriter.h"

QueueSystem::QueueSystem(DriverOutput& output, QueueFunctionID& sender)
    : m_output(output), m_sender(sender) {}

IInterface* QueueSystem::queryInterface(unsigned int id) {
    return id == IID_IFunctionID ? &m_sender : nullptr;
}

void QueueSystem::executeCommand(const std::string& command, const std::string& arguments) {
    m_output.send(protocol::MessageWriter(protocol::executeCommand).string(command).string(arguments));
}
