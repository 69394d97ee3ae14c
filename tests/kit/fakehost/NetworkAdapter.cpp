#include "sal/NetworkAdapter.h"

#include <algorithm>

#include "FakeHost.h"

namespace sal {

struct NetworkAdapter::Impl {
    std::string name;

    fakehost::Adapter* adapter() const {
        for (fakehost::Adapter& candidate : fakehost::FakeHost::current().adapters) {
            if (candidate.name == name)
                return &candidate;
        }
        return nullptr;
    }
};

std::list<std::string> NetworkAdapter::getAdapterNameList() {
    fakehost::FakeHost& host = fakehost::FakeHost::current();
    std::list<std::string> result;
    if (!host.journal().perform("adapter list"))
        return result;
    for (const fakehost::Adapter& adapter : host.adapters)
        result.push_back(adapter.name);
    return result;
}

void NetworkAdapter::setSecondName(const std::string&, const std::string&) {}

NetworkAdapter::NetworkAdapter() : m_pImpl(std::make_unique<Impl>()) {}

NetworkAdapter::~NetworkAdapter() = default;

bool NetworkAdapter::open(const std::string& name) {
    if (!fakehost::Journal::instance().perform("adapter open " + name))
        return false;
    m_pImpl->name = name;
    return m_pImpl->adapter() != nullptr;
}

HostAddress NetworkAdapter::getMainIpAddress() const {
    const bool isTold = fakehost::Journal::instance().permit("adapter main address " + m_pImpl->name);
    const fakehost::Adapter* pAdapter = m_pImpl->adapter();
    return isTold && pAdapter ? HostAddress(pAdapter->mainAddress) : HostAddress();
}

bool NetworkAdapter::hasIpAddress(const HostAddress& address) const {
    const bool isTold = fakehost::Journal::instance().permit("adapter has " + m_pImpl->name);
    const fakehost::Adapter* pAdapter = m_pImpl->adapter();
    if (!isTold || !pAdapter)
        return false;
    const auto& secondary = pAdapter->secondaryAddresses;
    return pAdapter->mainAddress == address.getAddressString() ||
           std::find(secondary.begin(), secondary.end(), address.getAddressString()) != secondary.end();
}

bool NetworkAdapter::deleteIpAddress(const HostAddress& address) {
    if (!fakehost::Journal::instance().perform("adapter delete " + m_pImpl->name + " " +
                                               address.getAddressString()))
        return false;
    fakehost::Adapter* pAdapter = m_pImpl->adapter();
    return pAdapter && std::erase(pAdapter->secondaryAddresses, address.getAddressString()) > 0;
}

bool NetworkAdapter::addIpAddress(const HostAddress& address, const HostAddress& netmask) {
    if (!fakehost::Journal::instance().perform("adapter add " + m_pImpl->name + " " +
                                               address.getAddressString() + " " + netmask.getAddressString()))
        return false;
    fakehost::Adapter* pAdapter = m_pImpl->adapter();
    if (!pAdapter)
        return false;
    pAdapter->secondaryAddresses.push_back(address.getAddressString());
    return true;
}

}  // namespace sal
