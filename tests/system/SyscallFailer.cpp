#include "SyscallFailer.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

/// Lets everything pass but these calls, which the listener answers.
std::vector<sock_filter> filterFor(const std::vector<int>& calls) {
    std::vector<sock_filter> filter{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned int>(offsetof(seccomp_data, nr)))};
    for (const int call : calls) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned int>(call), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return filter;
}

int installListener(const std::vector<int>& calls) {
    std::vector<sock_filter> filter = filterFor(calls);
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return -1;
    return static_cast<int>(
        syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

pid_t processOf(pid_t thread) {
    std::ifstream status("/proc/" + std::to_string(thread) + "/status");
    for (std::string word; status >> word;) {
        pid_t process = 0;
        if (word == "Tgid:" && status >> process)
            return process;
    }
    return 0;
}

std::string linkText(const std::string& path) {
    std::error_code error;
    return std::filesystem::read_symlink(path, error).string();
}

/// The kernel's own counters and clocks: what is read from and written to them cannot fail.
bool isKernelObject(pid_t process, std::uint64_t descriptor) {
    const std::string path = "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor);
    return linkText(path).starts_with("anon_inode:");
}

bool isWholeSecond(pid_t thread, std::uint64_t address) {
    timespec time{};
    iovec here{&time, sizeof time};
    iovec there{reinterpret_cast<void*>(address), sizeof time};
    return process_vm_readv(thread, &here, 1, &there, 1, 0) == sizeof time && time.tv_sec == 1 &&
           time.tv_nsec == 0;
}

/// The text in another process's memory, up to its end or a path's greatest length.
std::string textAt(pid_t thread, std::uint64_t address) {
    std::string text;
    // Piece by piece: what lies behind the text may not be there.
    for (char piece[64]; text.size() < 4096; address += sizeof piece - address % sizeof piece) {
        const std::size_t size = sizeof piece - address % sizeof piece;
        iovec here{piece, size};
        iovec there{reinterpret_cast<void*>(address), size};
        if (process_vm_readv(thread, &here, 1, &there, 1, 0) != static_cast<ssize_t>(size))
            return text;
        const std::size_t length = strnlen(piece, size);
        text.append(piece, length);
        if (length < size)
            return text;
    }
    return text;
}

bool contains(const std::vector<int>& calls, int call) {
    return std::find(calls.begin(), calls.end(), call) != calls.end();
}

}  // namespace

struct SyscallFailer::Shared {
    std::atomic<int> listener{-1};
    std::atomic<bool> isTaken{false};
};

std::string SyscallFailer::unavailable() {
    const unsigned int action = SECCOMP_RET_USER_NOTIF;
    if (syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0)
        return {};
    return std::string("needs a kernel that lets system calls be watched: seccomp: ") + std::strerror(errno);
}

SyscallFailer::SyscallFailer(Plan plan) : m_plan(std::move(plan)) {
    void* pMemory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    m_endFd = eventfd(0, EFD_CLOEXEC);
    if (pMemory == MAP_FAILED || m_endFd < 0)
        throw std::runtime_error("no memory or descriptor");
    m_pShared = new (pMemory) Shared;
}

SyscallFailer::~SyscallFailer() {
    finish();
    munmap(m_pShared, sizeof(Shared));
    close(m_endFd);
}

void SyscallFailer::enter() {
    std::vector<int> calls = m_plan.calls;
    calls.push_back(SYS_clock_nanosleep);
    if (!contains(calls, SYS_fcntl))
        calls.push_back(SYS_fcntl);
    m_pShared->listener = installListener(calls);
    // The parent takes the descriptor from here; none of the watched calls may come before.
    while (!m_pShared->isTaken)
        sched_yield();
}

void SyscallFailer::attend(pid_t program) {
    while (m_pShared->listener < 0)
        sched_yield();
    const int process = static_cast<int>(syscall(SYS_pidfd_open, program, 0));
    const int listener = static_cast<int>(syscall(SYS_pidfd_getfd, process, m_pShared->listener.load(), 0));
    close(process);
    if (listener < 0)
        throw std::runtime_error(std::string("pidfd_getfd: ") + std::strerror(errno));
    m_thread = std::thread([this, listener, program] { serve(listener, program); });
    m_pShared->isTaken = true;
}

void SyscallFailer::finish() {
    if (!m_thread.joinable())
        return;
    eventfd_write(m_endFd, 1);
    m_thread.join();
}

std::optional<std::string> SyscallFailer::failed() {
    finish();
    return m_failed;
}

int SyscallFailer::count() {
    finish();
    return m_count;
}

void SyscallFailer::serve(int listener, pid_t program) {
    bool hasBegun = false;
    for (;;) {
        pollfd watched[] = {{listener, POLLIN, 0}, {m_endFd, POLLIN, 0}};
        if (poll(watched, 2, -1) < 0)
            continue;
        // Nobody is left to attend.
        if (watched[0].revents & POLLHUP || (watched[0].revents == 0 && watched[1].revents != 0))
            break;
        seccomp_notif request{};
        if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &request) != 0)
            continue;
        seccomp_notif_resp response{};
        response.id = request.id;
        response.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;

        const int call = request.data.nr;
        const auto* pArguments = request.data.args;
        const auto caller = static_cast<pid_t>(request.pid);
        if (call == SYS_clock_nanosleep) {
            if (isWholeSecond(caller, pArguments[2]))
                response.flags = 0;
        } else {
            const pid_t process = processOf(caller);
            const bool isProgram = process == program;
            // The program's first own act: it looks whether standard input is open.
            if (isProgram && call == SYS_fcntl && pArguments[0] == 0 && pArguments[1] == F_GETFD)
                hasBegun = true;
            if (m_plan.beforeOpen && isProgram && call == SYS_openat)
                m_plan.beforeOpen(textAt(caller, pArguments[1]));
            const bool isQuestion =
                call == SYS_fcntl && (pArguments[1] == F_GETFD || pArguments[1] == F_GETFL);
            const bool isMeant =
                contains(m_plan.calls, call) && !isQuestion &&
                (m_plan.inChildren ? !isProgram : isProgram && hasBegun) &&
                !((call == SYS_read || call == SYS_write) && isKernelObject(process, pArguments[0]));
            if (isMeant && m_count++ == m_plan.number) {
                response.flags = 0;
                response.error = -m_plan.error;
                m_failed =
                    std::filesystem::path(linkText("/proc/" + std::to_string(process) + "/exe")).filename();
            }
        }
        ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &response);
    }
    close(listener);
}
