#include "CheckCommand.h"

#include <filesystem>
#include <string>
#include <vector>

#include "CheckReport.h"
#include "ConfigurationCheck.h"
#include "FileGuard.h"
#include "XMLVerify.h"
#include "sal/Path.h"

int CheckCommand::run(const Options& options, std::ostream& out) {
    std::vector<Finding> findings;
    const auto guarded = FileGuard::finding(options.config);
    if (guarded)
        findings.push_back(*guarded);
    XMLVerify::setTrustDirectory(options.trustDirectory);
    if (!options.trustDirectory.empty()) {
        const std::string fault = XMLVerify::signatureFault(sal::Path(options.config));
        if (!fault.empty())
            findings.push_back(
                {options.requireSignature ? Finding::ESeverity::Error : Finding::ESeverity::Warning,
                 options.config, 0, "is not signed by a trusted key: " + fault});
    }

    const WorkplaceFile workplace(guarded ? std::string() : options.config);
    const DescriptorCatalogue catalogue(options.driverDirectories);
    const std::string workDirectory =
        options.workDirectory.empty() ? std::filesystem::current_path().string() : options.workDirectory;
    for (const Finding& finding : ConfigurationCheck(workplace, catalogue, workDirectory).forQuestion())
        findings.push_back(finding);

    const CheckReport report(options.config, findings);
    if (options.checkAsJson)
        report.writeJson(out);
    else
        report.writeText(out);
    return report.hasErrors() ? 1 : 0;
}
