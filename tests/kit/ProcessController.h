#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "HangGuard.h"

/// One process under test: a child, or the orphan of one. Waits are bounded, so that a process that hangs
/// fails its test and is killed when the controller goes.
class ProcessController {
public:
    ProcessController() = default;
    explicit ProcessController(pid_t pid);
    ~ProcessController();
    ProcessController(ProcessController&& other) noexcept;
    ProcessController& operator=(ProcessController&& other) noexcept;

    pid_t pid() const { return m_pid; }
    bool alive() const;
    void signal(int number) const;

    /// "exit 0", "signal 11"; "still running" when it does not end in time.
    std::string waitEnd(std::chrono::seconds timeout = c_hangGuard);

    static int openDescriptors(pid_t pid);
    /// Processor time so far, all threads.
    std::chrono::milliseconds processorTime() const;

private:
    pid_t m_pid = 0;
    int m_pidFd = -1;
};
