#pragma once

#include <string>

#include "ChildProcess.h"

/// A message bus of its own in a directory; ends with the object.
class DBusDaemon {
public:
    /// Returns when the bus can be connected to. It stays on the first so many processors; 0 for all.
    DBusDaemon(const std::string& directory, int cores);

    pid_t pid() const { return m_process.pid(); }
    const std::string& address() const { return m_address; }

private:
    /// The daemon says on it that it listens.
    struct Pipe {
        Pipe();
        int ends[2];
    };

    std::string m_address;
    Pipe m_pipe;
    ChildProcess m_process;
};
