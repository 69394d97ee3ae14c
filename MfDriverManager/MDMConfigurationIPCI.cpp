#include "MDMConfigurationIPCI.h"

#include "InterfaceIds.h"

MDMConfigurationIPCI::MDMConfigurationIPCI() = default;

MDMConfigurationIPCI::~MDMConfigurationIPCI() {
    m_pMDMConfiguration = nullptr;
}

IInterface* MDMConfigurationIPCI::queryInterface(unsigned int id) {
    return id == IID_IMDMStatus ? static_cast<IMDMStatus*>(this) : nullptr;
}

void MDMConfigurationIPCI::statusMfDriver() const {}

void MDMConfigurationIPCI::setMDMConfiguration(IMDMConfiguration* pMDMConfiguration) {
    m_pMDMConfiguration = pMDMConfiguration;
}
