#pragma once

#include <sys/types.h>

#include <string>

#include "UniqueFd.h"

/// The Unix socket at which the host takes requests, and its name in the file system. While the host lives it
/// holds a record lock on a file beside it, "NAME.lock", so that a socket that a dead host has left is told
/// from that of a living one, however that hangs, and two hosts that start at the same time never get the
/// same name. Made by main, opened while the process has one thread and before it enters a sandbox.
class ControlSocket {
public:
    ControlSocket() = default;
    ~ControlSocket();  ///< removes what is still its own
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

    /// $XDG_RUNTIME_DIR/mfhost.sock, or /run/mfhost.sock where there is no such directory.
    static std::string defaultPath();

    /// Makes it, open to all users; where the name is taken, under the next one that is not: mfhost-2.sock,
    /// mfhost-3.sock. Empty when clients can connect now; else why not.
    std::string open(const std::string& path);

    /// Under which name it was made.
    const std::string& path() const { return m_path; }
    /// Why that is not the name asked for; empty when it is.
    const std::string& warning() const { return m_warning; }
    /// Hands over the listening, non-blocking socket.
    base::UniqueFd takeListener() { return std::move(m_listener); }

private:
    enum class EAttempt { Done, Again, Taken, Failed };

    EAttempt openAs(const std::string& name);
    EAttempt lock();
    EAttempt openLockFile();
    EAttempt clearName();
    EAttempt bind();
    bool isOfDeadHost(const struct stat& socket) const;
    bool isServed() const;
    /// For calls that take no directory's descriptor, whatever is mounted over the directory meanwhile.
    std::string placeByDescriptor() const;
    void release();
    EAttempt failed(const std::string& reason);
    EAttempt taken(const std::string& by);

    std::string m_directory;
    std::string m_name;
    std::string m_path;
    std::string m_warning;
    std::string m_reason;
    base::UniqueFd m_place;  ///< the directory
    base::UniqueFd m_lockFile;
    bool m_isLocked = false;
    base::UniqueFd m_listener;
    dev_t m_device = 0;  ///< of the socket's name
    ino_t m_inode = 0;   ///< 0 while there is none
};
