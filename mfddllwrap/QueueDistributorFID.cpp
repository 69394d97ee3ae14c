#include "QueueDistributorFID.h"

#include "InterfaceIds.h"

QueueDistributorFID::QueueDistributorFID(const QueueFunctionID& sender) : m_sender(sender) {}

IInterface* QueueDistributorFID::queryInterface(unsigned int id) {
    return id == IID_IDistributorFID ? this : nullptr;
}

void QueueDistributorFID::dispatchFID(const std::string& fid, const FIDParameterList& parameters) const {
    m_sender.sendFID(fid, parameters);
}
