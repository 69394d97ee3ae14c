#include "StartFault.h"

#include "AdapterFault.h"
#include "Printable.h"

std::string startFault(const WorkplaceFile::Entry& entry, const DescriptorCatalogue& catalogue) {
    if (!entry.isLoaded())
        return entry.interfaceWord.empty()
                   ? "no interfaceType"
                   : "the interfaceType " + base::quoted(entry.interfaceWord) + " loads nothing";
    const auto* pRecord = catalogue.find(entry.driverType, entry.version);
    if (!pRecord)
        return "no descriptor of type " + base::quoted(entry.driverType) + " in version " +
               base::quoted(entry.version);
    if (std::string fault = adapterFault(entry.networkAdapter); !fault.empty())
        return fault;
    return DescriptorCatalogue::moduleFault(*pRecord);
}
