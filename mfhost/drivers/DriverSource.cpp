#include "DriverSource.h"

#include <utility>

namespace {

std::string changedAttributes(const WorkplaceFile::Entry& before, const WorkplaceFile::Entry& after) {
    std::string names;
    const auto compare = [&](const char* name, const std::string& left, const std::string& right) {
        if (left != right)
            names += (names.empty() ? "" : ", ") + std::string(name);
    };
    compare("driverType", before.driverType, after.driverType);
    compare("version", before.version, after.version);
    compare("workingDirectory", before.workingDirectory, after.workingDirectory);
    compare("ipAddress", before.ipAddress, after.ipAddress);
    compare("networkAdapter", before.networkAdapter, after.networkAdapter);
    compare("interfaceType", before.interfaceWord, after.interfaceWord);
    compare("workplace", std::to_string(before.workplaceID), std::to_string(after.workplaceID));
    return names;
}

}  // namespace

std::string DriverSource::difference(const DriverSource& later) const {
    std::string words;
    const auto add = [&](const std::string& what) { words += (words.empty() ? "" : ", ") + what; };
    if (const std::string names = changedAttributes(entry, later.entry); !names.empty())
        add("entry changed (" + names + ")");
    // An entry that names another type has another module, which is no news.
    if (module.path == later.module.path && !module.isSame(later.module))
        add(!later.module.isThere ? "module is missing"
            : module.isThere      ? "module changed"
                                  : "module is new");
    else if (module.path != later.module.path && words.empty())
        add("module is another file");
    if (isSigned != later.isSigned)
        add(later.isSigned ? "the file is signed by a trusted key now"
                           : "the file is no longer signed by a trusted key");
    return words;
}
