#pragma once

#include <list>
#include <memory>
#include <string>

#include "sal/Export.h"
#include "sal/HostAddress.h"

namespace sal {

/// A network adapter of the machine and its IPv4 addresses, asked for at each call. Changes need
/// CAP_NET_ADMIN; a refusal is false with a log line that holds the system's reason.
class SAL_API NetworkAdapter {
public:
    /// All adapters in the kernel's order, each followed by its second names.
    static std::list<std::string> getAdapterNameList();

    /// From now on adapter real can also be had as name. Called at start, before other threads use adapters.
    static void setSecondName(const std::string& name, const std::string& real);

    NetworkAdapter();
    ~NetworkAdapter();
    NetworkAdapter(const NetworkAdapter&) = delete;
    NetworkAdapter& operator=(const NetworkAdapter&) = delete;

    /// Binds the object to the adapter of that name, second name or kernel's alternative name. False when
    /// there is none.
    bool open(const std::string& name);

    /// The first primary address; the empty address when there is none.
    HostAddress getMainIpAddress() const;
    bool hasIpAddress(const HostAddress& address) const;
    /// Secondary addresses that the kernel takes away together with a primary one are put back.
    bool deleteIpAddress(const HostAddress& address);
    /// A malformed address or netmask is never added.
    bool addIpAddress(const HostAddress& address, const HostAddress& netmask);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};

}  // namespace sal
