#include "ConfigurationGuard.h"

#include <utility>

#include "ConfigurationCheck.h"
#include "HostLog.h"
#include "WorkplaceFile.h"
#include "sal/Path.h"

ConfigurationGuard::ConfigurationGuard(std::vector<std::string> driverDirectories, std::string configuration)
    : m_driverDirectories(std::move(driverDirectories)), m_configuration(std::move(configuration)) {}

bool ConfigurationGuard::acceptsStart() {
    m_catalogue = DescriptorCatalogue(m_driverDirectories);
    const WorkplaceFile workplace(m_configuration);
    const std::string workDirectory = sal::Path::getCurrentWorkingDirPath().getPathString();
    bool isAccepted = true;
    for (const Finding& finding : ConfigurationCheck(workplace, m_catalogue, workDirectory).forStart()) {
        const std::string words = finding.inWords();
        m_logged.insert(words);
        if (finding.isError()) {
            isAccepted = false;
            hostLog(sal::LogOutput::eCritical) << words << "; the workplace is not started" << std::endl;
        } else {
            hostLog(sal::LogOutput::eWarning) << words << std::endl;
        }
    }
    return isAccepted;
}

std::string ConfigurationGuard::reloadRefusal(const std::string& driverID) {
    const WorkplaceFile workplace(m_configuration);
    std::string refusal = workplace.reloadRefusal(driverID);
    const std::string workDirectory = sal::Path::getCurrentWorkingDirPath().getPathString();
    for (const Finding& finding :
         ConfigurationCheck(workplace, m_catalogue, workDirectory).forReload(driverID)) {
        const std::string words = finding.inWords();
        if (finding.isError() && refusal.empty())
            refusal = words;
        if (words != refusal && m_logged.insert(words).second)
            hostLog(finding.isError() ? sal::LogOutput::eError : sal::LogOutput::eWarning)
                << words << std::endl;
    }
    return refusal;
}
