// Loaded before the C library into a process that is measured: counts in the shared file MFD_BENCH_CALLS how
// often it calls what tells of a process's end. The program's children are without it.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "CallCounts.h"

#define BENCH_CALL extern "C" __attribute__((visibility("default")))

namespace {

CallCounts* g_pCounts = nullptr;

[[noreturn]] void fail() {
    std::fprintf(stderr, "calls cannot be counted\n");
    _exit(126);
}

/// The function of that name which this library stands before.
template <class Function>
Function next(const char* pName) {
    const auto function = reinterpret_cast<Function>(dlsym(RTLD_NEXT, pName));
    if (!function)
        fail();
    return function;
}

void count(std::atomic<std::uint64_t> CallCounts::*pCount) {
    // Other libraries may call before this one has begun.
    if (g_pCounts)
        (g_pCounts->*pCount).fetch_add(1, std::memory_order_relaxed);
}

[[gnu::constructor]] void begin() {
    const char* pFile = std::getenv("MFD_BENCH_CALLS");
    const int fd = pFile ? open(pFile, O_RDWR | O_CLOEXEC) : -1;
    void* pMemory = mmap(nullptr, sizeof(CallCounts), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (pMemory == MAP_FAILED)
        fail();
    close(fd);
    g_pCounts = static_cast<CallCounts*>(pMemory);
    g_pCounts->areCounted = true;
    unsetenv("MFD_BENCH_CALLS");
    unsetenv("LD_PRELOAD");
}

}  // namespace

BENCH_CALL int waitid(idtype_t kind, id_t id, siginfo_t* pInfo, int options) {
    static const auto s_next = next<decltype(&::waitid)>("waitid");
    count(&CallCounts::waitid);
    return s_next(kind, id, pInfo, options);
}

BENCH_CALL int poll(pollfd* pFds, nfds_t number, int timeout) {
    static const auto s_next = next<decltype(&::poll)>("poll");
    count(&CallCounts::poll);
    return s_next(pFds, number, timeout);
}

BENCH_CALL int epoll_wait(int fd, epoll_event* pEvents, int number, int timeout) {
    static const auto s_next = next<decltype(&::epoll_wait)>("epoll_wait");
    count(&CallCounts::epollWait);
    return s_next(fd, pEvents, number, timeout);
}
