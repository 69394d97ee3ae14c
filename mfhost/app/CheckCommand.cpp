#include "CheckCommand.h"

#include <filesystem>
#include <string>
#include <vector>

#include "CheckReport.h"
#include "ConfigurationCheck.h"
#include "WorkplaceSnapshot.h"
#include "XMLVerify.h"
#include "sal/NetworkAdapter.h"

int runCheck(const Options& options, std::ostream& out) {
    std::vector<Finding> findings;
    XMLVerify::setTrustDirectory(options.trustDirectory);
    const WorkplaceSnapshot snapshot(options.config);
    if (snapshot.finding())
        findings.push_back(*snapshot.finding());
    if (!options.trustDirectory.empty() && !snapshot.signatureFault().empty())
        findings.push_back(
            {options.requireSignature ? Finding::ESeverity::Error : Finding::ESeverity::Warning,
             options.config, 0, "is not signed by a trusted key: " + snapshot.signatureFault()});

    const DescriptorCatalogue catalogue(options.driverDirectories);
    const std::string workDirectory =
        options.workDirectory.empty() ? std::filesystem::current_path().string() : options.workDirectory;
    for (const auto& [name, real] : options.adapters)
        sal::NetworkAdapter::setSecondName(name, real);
    // A sandbox has adapters of its own.
    const bool isOnThisMachine = !options.sandbox && !options.prefersSandbox;
    for (const Finding& finding :
         ConfigurationCheck(snapshot.file(), catalogue, workDirectory, isOnThisMachine).forQuestion())
        findings.push_back(finding);

    const CheckReport report(options.config, findings);
    if (options.checkAsJson)
        report.writeJson(out);
    else
        report.writeText(out);
    return report.hasErrors() || (options.checkIsStrict && report.hasWarnings()) ? 1 : 0;
}
