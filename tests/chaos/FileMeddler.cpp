#include "FileMeddler.h"

#include <chrono>

namespace {

/// How long the file stays as it is, whole and broken, at most.
constexpr std::uint32_t s_longestWholeMs = 400;
constexpr std::uint32_t s_longestBrokenMs = 900;

}  // namespace

FileMeddler::FileMeddler(ChaosWorkplace& workplace, std::uint32_t seed)
    : m_workplace(workplace), m_random(seed), m_thread([this] { run(); }) {}

FileMeddler::~FileMeddler() {
    {
        const std::lock_guard lock(m_stopMutex);
        m_isStopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
    m_workplace.restore();
}

bool FileMeddler::wait(std::uint32_t milliseconds) {
    std::unique_lock lock(m_stopMutex);
    return !m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds),
                               [this] { return m_isStopping; });
}

void FileMeddler::run() {
    while (wait(below(s_longestWholeMs))) {
        const bool isBroken = below(2) == 0;
        const auto how = static_cast<ChaosWorkplace::EBroken>(below(ChaosWorkplace::s_brokenKinds));
        const std::uint32_t time = below(s_longestBrokenMs);
        // Whoever needs a whole file waits as long as it is broken.
        const std::lock_guard lock(m_mutex);
        ++m_writes;
        if (!isBroken) {
            m_workplace.rewrite();
            continue;
        }
        ++m_breaks;
        m_workplace.breakConfiguration(how);
        wait(time);
        m_workplace.restore();
    }
}
