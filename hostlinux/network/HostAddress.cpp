#include "sal/HostAddress.h"

#include <arpa/inet.h>

#include <cstring>

namespace sal {

HostAddress::HostAddress() = default;

HostAddress::HostAddress(const std::string& address) : m_address(address) {}

HostAddress::HostAddress(const char* address) : m_address(address ? address : "") {}

const std::string& HostAddress::getAddressString() const {
    return m_address;
}

bool HostAddress::isValid() const {
    in_addr address{};
    return std::strlen(m_address.c_str()) == m_address.size() &&
           ::inet_pton(AF_INET, m_address.c_str(), &address) == 1;
}

}  // namespace sal
