#include "ProcessTable.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "Needed.h"

void ProcessTable::Process::signal(int number) const {
    static_cast<void>(::syscall(SYS_pidfd_send_signal, pidFd.get(), number, nullptr, 0u));
}

ProcessTable::ProcessTable()
    : m_epoll(base::neededDescriptor(::epoll_create1(EPOLL_CLOEXEC), "the driver processes")) {}

void ProcessTable::add(const std::string& driverID, const sal::Process::Started& process, bool isRestart) {
    m_families.add(driverID, process);
    Process added{.driverID = driverID,
                  .pid = process.pid,
                  .pidFd = base::UniqueFd(process.pidFd),
                  .started = Clock::now(),
                  .isRestart = isRestart};
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = static_cast<std::uint64_t>(process.pid);
    const std::lock_guard lock(m_mutex);
    for (Process& former : m_processes) {
        if (former.driverID == driverID && !former.replaced)
            former.replaced = added.started;
    }
    added.isWatched = ::epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, process.pidFd, &event) == 0;
    m_hasUnwatched = m_hasUnwatched || !added.isWatched;
    m_processes.push_back(std::move(added));
}

/// The numbers of those that have ended, once each.
std::vector<int> ProcessTable::findEnded() {
    std::vector<int> pids;
    std::array<epoll_event, 64> events;
    // One that was told already comes again only after all the others.
    for (bool mayBeMore = true; mayBeMore;) {
        const int count = ::epoll_wait(m_epoll.get(), events.data(), static_cast<int>(events.size()), 0);
        bool isOneNew = false;
        for (int i = 0; i < count; ++i) {
            const int pid = static_cast<int>(events.at(static_cast<std::size_t>(i)).data.u64);
            if (std::find(pids.begin(), pids.end(), pid) != pids.end())
                continue;
            isOneNew = true;
            pids.push_back(pid);
        }
        mayBeMore = isOneNew && count == static_cast<int>(events.size());
    }
    const std::lock_guard lock(m_mutex);
    if (!m_hasUnwatched)
        return pids;
    m_hasUnwatched = false;
    for (const Process& process : m_processes) {
        if (process.isWatched)
            continue;
        m_hasUnwatched = true;
        pollfd end{process.pidFd.get(), POLLIN, 0};
        if (::poll(&end, 1, 0) > 0)
            pids.push_back(process.pid);
    }
    return pids;
}

std::vector<ProcessTable::Ended> ProcessTable::takeEnded() {
    const std::vector<int> pids = findEnded();
    // Until a process is collected its number is its own, and with it the session that it has left behind.
    for (const int pid : pids)
        m_families.end(pid);
    std::vector<Ended> ended;
    const std::lock_guard lock(m_mutex);
    m_isOneHeld = false;
    for (const int pid : pids) {
        const auto process = std::find_if(m_processes.begin(), m_processes.end(),
                                          [pid](const Process& candidate) { return candidate.pid == pid; });
        if (process == m_processes.end())
            continue;
        const auto end = ProcessEnd::collect(process->pidFd.get());
        if (!end) {
            m_isOneHeld = true;
            continue;
        }
        // Closing the descriptor would not do where a child has inherited it.
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, process->pidFd.get(), nullptr);
        ended.push_back({std::move(*process), *end});
        m_processes.erase(process);
    }
    if (m_processes.empty())
        m_empty.notify_all();
    return ended;
}

bool ProcessTable::isOneHeld() const {
    const std::lock_guard lock(m_mutex);
    return m_isOneHeld;
}

void ProcessTable::waitUntilEmpty() {
    std::unique_lock lock(m_mutex);
    m_empty.wait(lock, [this] { return m_processes.empty(); });
}
