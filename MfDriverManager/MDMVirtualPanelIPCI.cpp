#include "MDMVirtualPanelIPCI.h"

#include <iostream>

#include "FIDParameterList.h"
#include "IDistributorFID.h"
#include "InterfaceIds.h"

namespace {

template <class Value>
void reportState(const std::string& stateID, const Value& value) {
    std::cout << "MDMVirtualPanelIPCI: sends => " << stateID << "   state => " << value << std::endl
              << std::endl;
}

}  // namespace

MDMVirtualPanelIPCI::MDMVirtualPanelIPCI() = default;

MDMVirtualPanelIPCI::~MDMVirtualPanelIPCI() {
    m_pDistributorFID = nullptr;
}

IInterface* MDMVirtualPanelIPCI::queryInterface(unsigned int id) {
    return id == IID_IPanelState ? static_cast<IPanelState*>(this) : nullptr;
}

void MDMVirtualPanelIPCI::setStateValue(const std::string& stateID, const std::string& value) {
    reportState(stateID, value);
}

void MDMVirtualPanelIPCI::setStateValueFloat(const std::string& stateID, float value) {
    reportState(stateID, value);
}

void MDMVirtualPanelIPCI::setStateValueInt(const std::string& stateID, int value) {
    reportState(stateID, value);
}

void MDMVirtualPanelIPCI::setStateValueBool(const std::string& stateID, bool value) {
    reportState(stateID, value);
}

void MDMVirtualPanelIPCI::unsetStateValue(const std::string& stateID) {
    reportState(stateID, "INVALID");
}

void MDMVirtualPanelIPCI::triggerEvent(const std::string& eventID, const std::string& value) {
    std::cout << "MDMVirtualPanelIPCI: triggers => " << eventID << "   value => " << value << std::endl
              << std::endl;
}

void MDMVirtualPanelIPCI::showState() const {}

void MDMVirtualPanelIPCI::sendTestFID(const std::string& fid, const FIDParameterList& parameters) const {
    if (m_pDistributorFID)
        m_pDistributorFID->dispatchFID(fid, parameters);
}

void MDMVirtualPanelIPCI::setDistributorFIDInterface(IDistributorFID* pDistributorFID) {
    m_pDistributorFID = pDistributorFID;
}
