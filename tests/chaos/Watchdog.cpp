#include "Watchdog.h"

#include <signal.h>
#include <unistd.h>

#include <iostream>
#include <utility>

#include "Leftovers.h"
#include "Patience.h"

Watchdog::Watchdog(std::chrono::seconds limit, std::string mark)
    : m_mark(std::move(mark)), m_thread([this, limit] { run(limit); }) {}

Watchdog::~Watchdog() {
    {
        const std::lock_guard lock(m_mutex);
        m_isDone = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void Watchdog::run(std::chrono::seconds limit) {
    {
        std::unique_lock lock(m_mutex);
        for (Patience left(limit); !left.isOver();)
            if (m_changed.wait_for(lock, std::chrono::milliseconds(200), [this] { return m_isDone; }))
                return;
    }
    std::cout << "chaos: has not come to its end in " << limit.count() << " s and is ended" << std::endl;
    // A host that is killed takes some moments to be followed by its drivers.
    if (Leftovers::isPrivateMachine())
        for (const auto& [pid, command] : Leftovers::processes(m_mark))
            ::kill(pid, SIGKILL);
    ::_exit(s_exitCode);
}
