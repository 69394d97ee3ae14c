#include "WorkplaceAdmission.h"

#include <mutex>
#include <utility>

#include "ConfigurationCheck.h"
#include "DescriptorSearch.h"
#include "HostLog.h"
#include "WorkplaceFile.h"
#include "XmlInput.h"
#include "sal/Path.h"

WorkplaceAdmission::WorkplaceAdmission(std::vector<std::string> driverDirectories)
    : m_driverDirectories(std::move(driverDirectories)) {}

bool WorkplaceAdmission::acceptsStart(const WorkplaceFile& workplace) {
    m_catalogue = DescriptorCatalogue(m_driverDirectories);
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

std::string WorkplaceAdmission::reloadRefusal(const WorkplaceFile& workplace, const std::string& driverID) {
    std::string refusal = workplace.entryFault(driverID);
    // It says all that there is to say of such a file.
    if (!refusal.empty() && refusal == workplace.obstacle())
        return refusal;
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

bool WorkplaceAdmission::acceptsDescriptor(const std::string& path) {
    if (!DescriptorSearch::isWanted(path))
        return false;
    const std::string reason = XmlInput::refusal(path);
    if (reason.empty())
        return true;
    // The check and the search both list the descriptors.
    static std::mutex s_mutex;
    static std::set<std::string> s_logged;
    const std::lock_guard lock(s_mutex);
    if (s_logged.insert(reason).second)
        hostLog(sal::LogOutput::eError) << reason << "; the descriptor is left out" << std::endl;
    return false;
}
