#pragma once

#include <string>
#include <utility>
#include <vector>

/// Finds the control socket of the host that is meant. Main thread.
class HostSocket {
public:
    /// The directories in which hosts make their sockets, and the one in which each workplace that runs as a
    /// service has a directory of its own; empty for none.
    explicit HostSocket(std::vector<std::string> directories, std::string services = {})
        : m_directories(std::move(directories)), m_services(std::move(services)) {}
    /// $XDG_RUNTIME_DIR, /run and /run/mfhost.
    static HostSocket ofMachine();

    /// The socket of the host that is named: by the path of its socket (with a "/"), by its workplace (as the
    /// host tells it, or the name of its file, with or without its ending), as a service (NAME of
    /// mfhost@NAME, also where it tells the caller nothing) or by its socket's name without ending. Without a
    /// name the only one that answers. Throws a ControlError: no host there (3), or several (2, with a list).
    std::string find(const std::string& name) const;

    /// All sockets there that bear a host's name, those of dead hosts as well, sorted.
    std::vector<std::string> candidates() const;

private:
    const std::vector<std::string> m_directories;
    const std::string m_services;
};
