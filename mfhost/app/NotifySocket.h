#pragma once

#include <string>

#include "UniqueFd.h"

/// The way to the service manager that has started the host: datagrams of lines NAME=VALUE to the socket that
/// it names in NOTIFY_SOCKET. Owned by ServiceManager; any thread.
class NotifySocket {
public:
    enum class EPatience {
        None,  ///< of a thread that must not wait
        Short  ///< waits up to two seconds while the service manager has too much to do
    };

    /// The socket's path, or "@" and a name that is in no file system; empty where there is no service
    /// manager.
    explicit NotifySocket(std::string address);

    bool isThere() const { return !m_address.empty(); }

    /// Why the service manager has not got it; empty when it has, and where there is none.
    std::string send(const std::string& lines, EPatience patience) const;

private:
    const std::string m_address;
    const base::UniqueFd m_socket;
};
