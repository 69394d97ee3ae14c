#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "AccountFile.h"
#include "ApiCall.h"
#include "UniqueFd.h"

/// Who is at the other end of a connection to the control socket, and what he may do, as the kernel knows it:
/// root and the members of the group mfadmin administer, those of mfoperator operate, those of mfview view,
/// and whoever has started the host by hand administers. A number that stands for all that a user namespace
/// does not know has no role. Owned by ApiServer; API thread.
class PeerRoles {
public:
    struct Settings {
        /// The user who has started the host by hand; none where a service manager has.
        std::optional<unsigned> starter;
        /// Whether the process is a driver's. Any thread.
        std::function<bool(int pid)> isDriverProcess;
        std::string groupFile = "/etc/group";
        std::string userFile = "/etc/passwd";
        std::string userMap = "/proc/self/uid_map";
    };

    struct Peer {
        ERole role = ERole::None;
        std::string name;  ///< "anna" or "uid 1000"
        unsigned uid = 0;
        int pid = 0;              ///< 0 when it is not to be seen from here
        bool isFavoured = false;  ///< root or the starter
        base::UniqueFd process;   ///< none where the kernel does not give it
    };

    explicit PeerRoles(Settings settings);

    /// Nothing when the kernel does not tell.
    std::optional<Peer> look(int socket);
    struct Refusal {
        std::string reason;     ///< empty when it is not refused
        bool isForNow = false;  ///< what it is cannot be told for want of descriptors or memory
    };
    /// Why the peer is refused whatever its role is: it is a driver's process, was started by one, or is
    /// gone, so that its number may be another's; or none of that can be told now.
    Refusal refusal(const Peer& peer) const;

    /// Whether a service manager has started this process, rather than somebody by hand.
    static bool isStartedAsService();

private:
    ERole roleOf(unsigned uid, unsigned group, int socket);
    ERole roleOfGroup(unsigned group);
    bool isFavoured(unsigned uid) const;

    const Settings m_settings;
    AccountFile m_groups;
    AccountFile m_users;
    unsigned m_unknownUser;
    unsigned m_unknownGroup;
    bool m_isForOneUser;  ///< in a user namespace that knows no other
};
