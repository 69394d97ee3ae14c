#include "HostSystem.h"

#include <algorithm>
#include <utility>

#include "HostLog.h"
#include "InterfaceIds.h"

HostSystem::HostSystem(std::set<std::string> allowedCommands, Post post)
    : m_allowedCommands(std::move(allowedCommands)), m_post(std::move(post)) {}

IInterface* HostSystem::queryInterface(unsigned int id) {
    if (id == ILinkHost::s_id && m_pLinks)
        return m_pLinks->queryInterface(id);
    return id == IID_IFunctionID ? m_sender.queryInterface(id) : nullptr;
}

void HostSystem::executeCommand(const std::string& command, const std::string& arguments) {
    if (!m_allowedCommands.contains(command)) {
        if (isToldOf(command))
            hostLog(sal::LogOutput::eWarning)
                << "a driver's command \"" << command << "\" is refused; --allow-command " << command
                << " would allow it" << std::endl;
        return;
    }
    // A line end in the arguments must not begin a second command anywhere.
    const bool hasControls = std::any_of(arguments.begin(), arguments.end(),
                                         [](unsigned char c) { return c < 0x20 || c == 0x7f; });
    if (hasControls) {
        if (m_withControls.passes())
            hostLog(sal::LogOutput::eWarning)
                << "a driver's command \"" << command
                << "\" is refused: its arguments hold control characters" << std::endl;
        return;
    }
    if (!m_post(arguments.empty() ? command : command + " " + arguments) && m_withoutRoom.passes())
        hostLog(sal::LogOutput::eWarning)
            << "a driver's command \"" << command
            << "\" is dropped: the host is stopping or has too many waiting" << std::endl;
}

bool HostSystem::isToldOf(const std::string& command) {
    const std::lock_guard lock(m_mutex);
    const bool isOneOfMany = m_notAllowed.size() >= s_mostNames && !m_notAllowed.contains(command);
    return m_notAllowed[isOneOfMany ? std::string() : command].passes();
}
