#include "MDMConfigDistributor.h"

#include "InterfaceIds.h"

MDMConfigDistributor::MDMConfigDistributor() = default;

MDMConfigDistributor::~MDMConfigDistributor() = default;

IInterface* MDMConfigDistributor::queryInterface(unsigned int id) {
    switch (id) {
        case IID_IMfDriverConfig:
            return static_cast<IMfDriverConfig*>(this);
        case IID_IConfigState:
            return static_cast<IConfigState*>(this);
        default:
            return nullptr;
    }
}

void MDMConfigDistributor::assignModule() const {}

void MDMConfigDistributor::setGlobalColor() const {}
