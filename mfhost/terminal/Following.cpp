#include "Following.h"

#include <utility>

Following::Following(StateStore& store, int fd, std::function<void()> lookForEnds)
    : m_store(store), m_fd(fd), m_lookForEnds(std::move(lookForEnds)) {}

void Following::start(const std::string& glob) {
    const std::lock_guard lock(m_mutex);
    stopLocked();
    m_pPrinter = std::make_unique<FollowPrinter>(glob, m_fd, m_lookForEnds);
    m_store.addListener(m_pPrinter.get());
}

bool Following::stop() {
    const std::lock_guard lock(m_mutex);
    return stopLocked();
}

bool Following::stopLocked() {
    if (!m_pPrinter)
        return false;
    m_store.removeListener(m_pPrinter.get());
    m_pPrinter.reset();
    return true;
}
