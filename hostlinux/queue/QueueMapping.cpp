#include "QueueMapping.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>

namespace sal {

/// What the signal handler knows of a mapping. Entries are reused but never freed, so that the handler can
/// walk them at any time.
struct MappedRange {
    std::atomic<std::uintptr_t> begin{0};  ///< 0 when free
    std::atomic<std::uintptr_t> end{0};
    std::atomic<bool> faulted{false};
    MappedRange* pNext = nullptr;
};

namespace {

std::atomic<MappedRange*> s_pRanges{nullptr};
std::mutex s_rangesMutex;
std::uintptr_t s_pageSize = 0;
struct sigaction s_previous {};

bool patch(void* pAddress) {
    const auto address = reinterpret_cast<std::uintptr_t>(pAddress);
    for (MappedRange* pRange = s_pRanges.load(std::memory_order_acquire); pRange; pRange = pRange->pNext) {
        const std::uintptr_t begin = pRange->begin.load(std::memory_order_acquire);
        if (begin == 0 || address < begin || address >= pRange->end.load(std::memory_order_relaxed))
            continue;
        pRange->faulted.store(true, std::memory_order_release);
        void* pPage = reinterpret_cast<void*>(address & ~(s_pageSize - 1));
        return ::mmap(pPage, s_pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1,
                      0) != MAP_FAILED;
    }
    return false;
}

void onBusError(int number, siginfo_t* pInfo, void* pContext) {
    const int error = errno;
    const bool isFault = pInfo->si_code == BUS_ADRERR || pInfo->si_code == BUS_OBJERR;
    if (!isFault || !patch(pInfo->si_addr)) {
        if ((s_previous.sa_flags & SA_SIGINFO) != 0) {
            s_previous.sa_sigaction(number, pInfo, pContext);
        } else if (s_previous.sa_handler != SIG_DFL && s_previous.sa_handler != SIG_IGN) {
            s_previous.sa_handler(number);
        } else if (s_previous.sa_handler == SIG_DFL || isFault) {
            // The access is repeated, or the signal is sent again, and then has its default effect.
            ::signal(SIGBUS, SIG_DFL);
            if (!isFault)
                ::raise(SIGBUS);
        }
    }
    errno = error;
}

void installHandler() {
    s_pageSize = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = onBusError;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGBUS, &action, &s_previous);
}

MappedRange* enter(std::byte* pBase, std::size_t size) {
    const std::lock_guard lock(s_rangesMutex);
    MappedRange* pRange = s_pRanges.load(std::memory_order_relaxed);
    while (pRange && pRange->begin.load(std::memory_order_relaxed) != 0)
        pRange = pRange->pNext;
    const bool isNew = pRange == nullptr;
    if (isNew) {
        pRange = std::make_unique<MappedRange>().release();
        pRange->pNext = s_pRanges.load(std::memory_order_relaxed);
    }
    const auto begin = reinterpret_cast<std::uintptr_t>(pBase);
    pRange->faulted.store(false, std::memory_order_relaxed);
    pRange->end.store(begin + size, std::memory_order_relaxed);
    pRange->begin.store(begin, std::memory_order_release);
    if (isNew)
        s_pRanges.store(pRange, std::memory_order_release);
    return pRange;
}

}  // namespace

std::unique_ptr<QueueMapping> QueueMapping::map(int descriptor, std::size_t size) {
    static std::once_flag s_installed;
    std::call_once(s_installed, installHandler);
    void* pBase = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE, descriptor, 0);
    if (pBase == MAP_FAILED)
        return nullptr;
    ::madvise(pBase, size, MADV_DONTFORK);
    ::madvise(pBase, size, MADV_DONTDUMP);
    return std::unique_ptr<QueueMapping>(new QueueMapping(static_cast<std::byte*>(pBase), size));
}

QueueMapping::QueueMapping(std::byte* pBase, std::size_t size)
    : m_pBase(pBase), m_size(size), m_pRange(enter(pBase, size)) {}

QueueMapping::~QueueMapping() {
    // Before the system can give the addresses to another mapping.
    m_pRange->begin.store(0, std::memory_order_release);
    ::munmap(m_pBase, m_size);
}

bool QueueMapping::faulted() const {
    return m_pRange->faulted.load(std::memory_order_acquire);
}

}  // namespace sal
