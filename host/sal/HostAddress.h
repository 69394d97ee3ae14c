#pragma once

#include <string>

#include "sal/Export.h"

namespace sal {

/// An IPv4 address or netmask in dotted text. Text that is none is kept as it is and is not valid.
class SAL_API HostAddress {
public:
    HostAddress();  ///< the empty text
    HostAddress(const std::string& address);
    HostAddress(const char* address);

    const std::string& getAddressString() const;
    bool isValid() const;

private:
    std::string m_address;
};

}  // namespace sal
