#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// Stands between a program and the kernel: of the calls of one kind exactly one fails, as it does when the
/// system is short of something. Calls count from 0, in the order in which they come, from where main() of
/// the program begins; in the program's children from their very beginning. Pauses of a whole second are cut
/// short, so that many runs are affordable. Attends the program on a thread of its own until the object goes.
class SyscallFailer {
public:
    struct Plan {
        std::vector<int> calls;  ///< system call numbers of the kind
        int error = 0;           ///< what the call fails with
        int number = 0;          ///< which call; -1 for none
        bool inChildren = false;
        /// With SYS_openat among the calls: told of each path that the program is about to open, on the
        /// thread that attends it; the program waits meanwhile.
        std::function<void(const std::string& path)> beforeOpen = {};
    };

    /// Empty when the kernel lets calls be watched, else what is missing.
    static std::string unavailable();

    explicit SyscallFailer(Plan plan);
    ~SyscallFailer();
    SyscallFailer(const SyscallFailer&) = delete;
    SyscallFailer& operator=(const SyscallFailer&) = delete;

    /// In the child between fork and exec.
    void enter();
    /// In the parent behind the fork.
    void attend(pid_t program);

    /// The program whose call has failed. Nothing when fewer calls came. Ends the attendance.
    std::optional<std::string> failed();
    /// How many calls of the kind came.
    int count();

private:
    struct Shared;

    void serve(int listener, pid_t program);
    void finish();

    const Plan m_plan;
    Shared* m_pShared = nullptr;  ///< with the child
    int m_endFd = -1;
    std::thread m_thread;
    std::optional<std::string> m_failed;  ///< behind the join, as the count
    int m_count = 0;
};
