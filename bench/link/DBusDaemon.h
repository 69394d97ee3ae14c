#pragma once

#include <string>

#include "ChildProcess.h"

/// A message bus of its own in a directory; ends with the object.
class DBusDaemon {
public:
    /// Returns when the bus can be connected to. It stays on the first so many processors; 0 for all. With a
    /// directory of services it starts those, and no other's.
    DBusDaemon(const std::string& directory, int cores, const std::string& services = {});

    pid_t pid() const { return m_process.pid(); }
    const std::string& address() const { return m_address; }

private:
    /// The daemon says on it that it listens.
    struct Pipe {
        Pipe();
        int ends[2];
    };

    static std::string configuration(const std::string& directory, const std::string& services);

    std::string m_address;
    std::string m_configuration;  ///< which one it is told to take
    Pipe m_pipe;
    ChildProcess m_process;
};
