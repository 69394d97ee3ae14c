#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "DriverSender.h"
#include "ILinkHost.h"
#include "ISystem.h"
#include "Throttle.h"

/// The host as drivers see it: the commands they may give, and the sender of FIDs. Owned by Host; outlives
/// the manager. Any thread.
class HostSystem : public ISystem {
public:
    /// Takes a console line for later; false when there is no room for it.
    using Post = std::function<bool(const std::string& line)>;

    HostSystem(std::set<std::string> allowedCommands, Post post);

    IInterface* queryInterface(unsigned int id) override;

    /// Posts the command when it is allowed. A refusal is logged with the command's name, once in ten seconds
    /// however often it comes.
    void executeCommand(const std::string& command, const std::string& arguments) override;

    DriverSender& sender() { return m_sender; }
    /// What drivers that link workplaces get, before any asks; none by default. Outlives the drivers.
    void setLinks(ILinkHost& links) { m_pLinks = &links; }

private:
    /// So many names have lines of their own; further ones share them.
    static constexpr std::size_t s_mostNames = 100;

    bool isToldOf(const std::string& command);

    const std::set<std::string> m_allowedCommands;
    const Post m_post;
    DriverSender m_sender;
    ILinkHost* m_pLinks = nullptr;
    base::Throttle m_withControls;
    base::Throttle m_withoutRoom;
    std::mutex m_mutex;
    std::map<std::string, base::Throttle> m_notAllowed;  ///< by command
};
