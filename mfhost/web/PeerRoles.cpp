#include "PeerRoles.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <utility>
#include <vector>

#include "sal/ProcessFamily.h"

// Known to kernels from 6.5 on.
#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

namespace {

unsigned numberIn(const std::string& file, unsigned otherwise) {
    std::ifstream stream(file);
    unsigned number = 0;
    return stream >> number ? number : otherwise;
}

/// Whether the map has one user only.
bool isForOneUser(const std::string& map) {
    std::ifstream stream(map);
    unsigned long inside = 0;
    unsigned long outside = 0;
    unsigned long count = 0;
    unsigned long users = 0;
    while (stream >> inside >> outside >> count)
        users += count;
    return users == 1;
}

/// All groups but the primary one.
std::vector<gid_t> groupsOf(int socket) {
    std::vector<gid_t> groups(64);
    for (int i = 0; i < 2; ++i) {
        auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        const bool isThere = ::getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0;
        const bool isLonger = !isThere && errno == ERANGE;
        groups.resize(isThere || isLonger ? size / sizeof(gid_t) : 0);
        if (!isLonger)
            return groups;
    }
    return {};
}

/// Whether there is still, or again, a process of that number.
bool isThere(int pid) {
    return ::kill(pid, 0) == 0 || errno != ESRCH;
}

}  // namespace

PeerRoles::PeerRoles(Settings settings)
    : m_settings(std::move(settings)),
      m_groups(m_settings.groupFile),
      m_users(m_settings.userFile),
      m_unknownUser(numberIn("/proc/sys/kernel/overflowuid", 65534)),
      m_unknownGroup(numberIn("/proc/sys/kernel/overflowgid", 65534)),
      m_isForOneUser(::isForOneUser(m_settings.userMap)) {
    // Known from now on, even where descriptors are short when the first peer comes.
    m_groups.nameOf(0);
    m_users.nameOf(0);
}

std::optional<PeerRoles::Peer> PeerRoles::look(int socket) {
    struct ucred credentials {};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return std::nullopt;
    Peer peer;
    int process = -1;
    size = sizeof process;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &process, &size) == 0)
        peer.process = base::UniqueFd(process);
    peer.uid = credentials.uid;
    peer.pid = credentials.pid;
    peer.isFavoured = isFavoured(peer.uid);
    peer.role = roleOf(peer.uid, credentials.gid, socket);
    peer.name = m_users.nameOf(peer.uid);
    if (peer.name.empty())
        peer.name = "uid " + std::to_string(peer.uid);
    return peer;
}

bool PeerRoles::isFavoured(unsigned uid) const {
    if (uid == m_unknownUser)
        return false;
    return uid == m_settings.starter || (uid == 0 && !m_isForOneUser);
}

ERole PeerRoles::roleOf(unsigned uid, unsigned group, int socket) {
    if (isFavoured(uid))
        return ERole::Admin;
    if (uid == m_unknownUser || m_isForOneUser)
        return ERole::None;
    ERole role = roleOfGroup(group);
    for (const gid_t other : groupsOf(socket))
        role = std::max(role, roleOfGroup(other));
    return role;
}

ERole PeerRoles::roleOfGroup(unsigned group) {
    if (group == m_unknownGroup)
        return ERole::None;
    const std::string name = m_groups.nameOf(group);
    if (name == "mfadmin")
        return ERole::Admin;
    if (name == "mfoperator")
        return ERole::Operate;
    return name == "mfview" ? ERole::View : ERole::None;
}

PeerRoles::Refusal PeerRoles::refusal(const Peer& peer) const {
    // In a process namespace above or beside this one, where no child of this process is.
    if (peer.pid <= 0)
        return {};
    const auto ancestry = sal::ProcessFamily::ancestry(peer.pid);
    bool isTold = ancestry.has_value();
    bool isOfDriver = false;
    for (const int pid : ancestry.value_or(std::vector{peer.pid})) {
        const auto isMarked = sal::ProcessFamily::hasMarkOfChild(pid);
        isTold = isTold && isMarked;
        isOfDriver = isOfDriver || isMarked.value_or(false) ||
                     (m_settings.isDriverProcess && m_settings.isDriverProcess(pid));
    }
    if (isOfDriver)
        return {"process " + std::to_string(peer.pid) +
                " is a driver's process or was started by one; drivers do not use the control socket"};
    if (!isTold)
        return {"whether process " + std::to_string(peer.pid) +
                    " is a driver's cannot be told: the host is short of file descriptors or memory",
                true};
    // What was looked at may have been another process with the number of one that is gone.
    const bool isGone =
        peer.process
            ? ::syscall(SYS_pidfd_send_signal, peer.process.get(), 0, nullptr, 0u) != 0 && errno == ESRCH
            : !isThere(peer.pid);
    if (isGone)
        return {"the process that has connected, " + std::to_string(peer.pid) +
                ", has ended; whether it was a driver's cannot be told any more"};
    return {};
}

bool PeerRoles::isStartedAsService() {
    const char* pProcess = std::getenv("SYSTEMD_EXEC_PID");
    return std::getenv("NOTIFY_SOCKET") != nullptr || (pProcess && std::to_string(::getpid()) == pProcess);
}
