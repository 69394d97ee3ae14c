#pragma once

#include <sys/types.h>
#include <string>
#include <vector>

/// A queue_peer process, owned by a test: killed at the latest when the object goes.
class QueuePeer {
public:
    /// Runs queue_peer with the arguments, behind a prefix such as "unshare" with its options.
    explicit QueuePeer(const std::vector<std::string>& arguments,
                       const std::vector<std::string>& prefix = {});
    ~QueuePeer();
    QueuePeer(const QueuePeer&) = delete;
    QueuePeer& operator=(const QueuePeer&) = delete;

    /// The next line that it says; empty when it ends or says nothing before the hang guard.
    std::string line();

    pid_t pid() const { return m_pid; }
    void signal(int number);
    /// Ends it with SIGKILL and waits until it is gone.
    void kill();
    /// Waits for its end; its exit code, or -1 after a signal.
    int wait();

private:
    pid_t m_pid = -1;
    int m_output = -1;
};
