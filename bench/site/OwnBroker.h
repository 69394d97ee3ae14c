#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "ChildProcess.h"

/// A mosquitto of its own on this machine, at a port that nobody has, without a memory that outlives it;
/// every user has a password and rights. Owned and called by main.
class OwnBroker {
public:
    /// Users with their passwords, lines of mosquitto's ACL file and further ones of its settings. Throws
    /// when the files cannot be written, or there is no mosquitto_passwd.
    OwnBroker(std::string directory, const std::string& users, const std::string& rights,
              const std::string& settings);

    /// Returns when it can be connected to; throws when that takes too long.
    void start();
    /// With SIGKILL.
    void kill() { m_pProcess.reset(); }

    pid_t pid() const { return m_pProcess->pid(); }
    int port() const { return m_port; }

private:
    static int freePort();

    const std::string m_directory;
    const int m_port;
    std::unique_ptr<ChildProcess> m_pProcess;
};
