#include "sal/HostAddress.h"

#include <arpa/inet.h>

namespace sal {

HostAddress::HostAddress() = default;

HostAddress::HostAddress(const std::string& address) : m_address(address) {}

HostAddress::HostAddress(const char* address) : m_address(address) {}

const std::string& HostAddress::getAddressString() const {
    return m_address;
}

bool HostAddress::isValid() const {
    in_addr address;
    return inet_pton(AF_INET, m_address.c_str(), &address) == 1;
}

}  // namespace sal
