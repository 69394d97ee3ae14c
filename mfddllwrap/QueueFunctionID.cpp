#include "QueueFunctionID.h"

#include "FIDParameterList.h"
#include "InterfaceIds.h"
#include "MessageWriter.h"

QueueFunctionID::QueueFunctionID(DriverOutput& output) : m_output(output) {}

IInterface* QueueFunctionID::queryInterface(unsigned int id) {
    return id == IID_IFunctionID ? this : nullptr;
}

bool QueueFunctionID::sendFID(const std::string& fid, const FIDParameterList& parameters) const {
    protocol::MessageWriter message(protocol::dispatchFID);
    message.string(fid).parameters(parameters);
    return m_output.send(message);
}

bool QueueFunctionID::subscribe(const std::string&) const {
    return false;
}

bool QueueFunctionID::showState() const {
    return true;
}
