#include "LinkRightsCommand.h"

#include <vector>

#include "LinkFile.h"
#include "LinkRights.h"
#include "WorkplaceFile.h"
#include "XmlInput.h"

EExit LinkRightsCommand::fail(const std::string& reason) {
    m_screen.complain(reason);
    return EExit::Failed;
}

EExit LinkRightsCommand::run(const std::string& workplace, const std::string& workDirectory) {
    const XmlInput input = XmlInput::read(workplace);
    if (input.finding)
        return fail(input.finding->inWords());
    const WorkplaceFile file(workplace, input);
    if (!file.isWhole())
        return fail(file.obstacle());
    std::vector<LinkSettings> links;
    bool isWrong = false;
    for (const WorkplaceFile::Entry& entry : file.entries()) {
        if (entry.driverType != LinkFile::s_driverType)
            continue;
        const LinkFile link(LinkFile::place(workDirectory, entry.workingDirectory), entry.driverID);
        for (const Finding& finding : link.findings()) {
            if (finding.isError())
                m_screen.complain(finding.inWords());
        }
        if (link.settings())
            links.push_back(*link.settings());
        else
            isWrong = true;
    }
    if (isWrong)
        return EExit::Failed;
    if (links.empty())
        return fail(workplace + " has no link; an entry of one has driverType=\"" + LinkFile::s_driverType +
                    "\"");
    m_screen.out << linkRights(links) << std::flush;
    return EExit::Done;
}
