#include "AdapterFault.h"

#include <net/if.h>

#include <algorithm>
#include <list>

#include "Printable.h"
#include "sal/NetworkAdapter.h"

namespace {

/// By its name, one of the kernel's alternative names, or a second name.
bool hasAdapter(const std::string& name, const std::list<std::string>& names) {
    return std::find(names.begin(), names.end(), name) != names.end() || ::if_nametoindex(name.c_str()) != 0;
}

}  // namespace

std::string adapterFault(const std::string& networkAdapter) {
    const std::list<std::string> names = sal::NetworkAdapter::getAdapterNameList();
    if (!networkAdapter.empty() && !hasAdapter(networkAdapter, names))
        return "no adapter " + base::printable(networkAdapter);
    // Each driver is told the address of the first of these.
    const bool hasFirst = std::any_of(names.begin(), names.end(),
                                      [](const std::string& name) { return name.starts_with("eth"); });
    return hasFirst || hasAdapter("eth0", names) ? std::string() : "no adapter eth0";
}
