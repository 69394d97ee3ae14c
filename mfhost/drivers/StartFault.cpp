#include "StartFault.h"

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

std::string adapterFault(const WorkplaceFile::Entry& entry) {
    const std::list<std::string> names = sal::NetworkAdapter::getAdapterNameList();
    if (!entry.networkAdapter.empty() && !hasAdapter(entry.networkAdapter, names))
        return "no adapter " + base::printable(entry.networkAdapter);
    // Each driver is told the address of the first of these.
    const bool hasFirst = std::any_of(names.begin(), names.end(),
                                      [](const std::string& name) { return name.starts_with("eth"); });
    return hasFirst || hasAdapter("eth0", names) ? std::string() : "no adapter eth0";
}

}  // namespace

std::string startFault(const WorkplaceFile::Entry& entry, const DescriptorCatalogue& catalogue) {
    if (!entry.isLoaded())
        return entry.interfaceWord.empty()
                   ? "no interfaceType"
                   : "the interfaceType " + base::quoted(entry.interfaceWord) + " loads nothing";
    const auto* pRecord = catalogue.find(entry.driverType, entry.version);
    if (!pRecord)
        return "no descriptor of type " + base::quoted(entry.driverType) + " in version " +
               base::quoted(entry.version);
    if (std::string fault = adapterFault(entry); !fault.empty())
        return fault;
    return DescriptorCatalogue::moduleFault(*pRecord);
}
