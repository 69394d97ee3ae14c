#include "CheckCommand.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "CheckReport.h"
#include "Printable.h"
#include "Sandbox.h"
#include "StandInAdapter.h"
#include "WorkplaceSnapshot.h"
#include "XMLVerify.h"
#include "sal/ModuleLoader.h"
#include "sal/NetworkAdapter.h"

namespace {

/// As adapterFault(), of the sandbox that a start with these options would enter.
std::string faultInSandbox(const Options& options, const std::string& networkAdapter) {
    const std::set<std::string> real{"lo", "eth0"};
    const auto isOfIt = [&](const auto& second) {
        return second.first == networkAdapter && real.contains(second.second);
    };
    const bool isThere = networkAdapter.empty() || real.contains(networkAdapter) ||
                         std::any_of(options.adapters.begin(), options.adapters.end(), isOfIt);
    return isThere ? std::string() : "no adapter " + base::printable(networkAdapter) + " in the sandbox";
}

ConfigurationCheck::Machine machineFor(const Options& options) {
    ConfigurationCheck::Machine machine;
    machine.loadFault = &sal::ModuleLoader::tryOut;
    if (options.sandbox || (options.prefersSandbox && sandboxRefusal().empty())) {
        machine.adapterFault = [&options](const auto& adapter) { return faultInSandbox(options, adapter); };
        return machine;
    }
    for (const auto& [name, real] : options.adapters)
        sal::NetworkAdapter::setSecondName(name, real);
    const std::string standIn = options.prefersSandbox ? standInAdapter() : std::string();
    if (options.adapters.empty() && !standIn.empty())
        sal::NetworkAdapter::setSecondName("eth0", standIn);
    return machine;
}

}  // namespace

int runCheck(const Options& options, std::ostream& out) {
    return runCheck(options, machineFor(options), out);
}

int runCheck(const Options& options, const ConfigurationCheck::Machine& machine, std::ostream& out) {
    std::vector<Finding> findings;
    XMLVerify::setTrustDirectory(options.trustDirectory);
    const WorkplaceSnapshot snapshot(options.config);
    if (snapshot.finding())
        findings.push_back(*snapshot.finding());
    // Of one that cannot be read, that is told.
    if (!options.trustDirectory.empty() && snapshot.bytes() && !snapshot.signatureFault().empty())
        findings.push_back(
            {options.requireSignature ? Finding::ESeverity::Error : Finding::ESeverity::Warning,
             options.config, 0, "is not signed by a trusted key: " + snapshot.signatureFault()});

    const DescriptorCatalogue catalogue(options.driverDirectories);
    const std::string workDirectory =
        options.workDirectory.empty() ? std::filesystem::current_path().string() : options.workDirectory;
    const ConfigurationCheck check(snapshot.file(), catalogue, workDirectory, machine);
    for (const Finding& finding : check.forQuestion())
        findings.push_back(finding);

    const CheckReport report(options.config, findings);
    if (options.checkAsJson)
        report.writeJson(out);
    else
        report.writeText(out);
    return report.hasErrors() || (options.checkIsStrict && report.hasWarnings()) ? 1 : 0;
}
