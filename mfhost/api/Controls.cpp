#include "Controls.h"

#include <utility>

#include "HostLog.h"

bool Controls::isSame(const ApiCaller& one, const ApiCaller& other) {
    // Each request on the control socket may come by a connection of its own.
    return one.webSession == other.webSession && (one.webSession > 0 || one.uid == other.uid);
}

std::optional<Controls::Holder> Controls::holder() {
    const std::lock_guard lock(m_mutex);
    forgetGone();
    return m_holder;
}

void Controls::forgetGone() {
    if (!m_holder || !m_holder->caller.isOfPanel())
        return;
    const std::uint64_t session = m_holder->caller.webSession;
    const bool isOpen = m_settings.isOpen(session);
    if (isOpen && (m_pages.contains(session) || m_settings.now() - m_lastPage < s_withoutPage))
        return;
    hostLog(sal::LogOutput::eInfo) << m_holder->caller.who() << " has the controls no longer: "
                                   << (isOpen ? "no page of it was open for a minute"
                                              : "its session has ended")
                                   << std::endl;
    m_holder.reset();
}

Controls::Change Controls::take(const ApiCaller& caller, bool isOnlyFree) {
    const std::lock_guard lock(m_mutex);
    forgetGone();
    Change change{.isDone = true, .former = m_holder};
    if (m_holder && isSame(m_holder->caller, caller))
        return change;
    if (m_holder && isOnlyFree)
        return {.isDone = false, .former = m_holder};
    m_holder = {.caller = caller, .since = std::chrono::system_clock::now()};
    if (caller.isOfPanel() && !m_pages.contains(caller.webSession))
        waitForPage();
    return change;
}

Controls::Change Controls::giveBack(const ApiCaller& caller) {
    const std::lock_guard lock(m_mutex);
    forgetGone();
    if (m_holder && !isSame(m_holder->caller, caller) && caller.role != ERole::Admin)
        return {.isDone = false, .former = m_holder};
    return {.isDone = true, .former = std::exchange(m_holder, std::nullopt)};
}

void Controls::pageCame(std::uint64_t webSession) {
    const std::lock_guard lock(m_mutex);
    // Who had its last page a minute ago does not get them back by another one.
    forgetGone();
    ++m_pages[webSession];
}

void Controls::pageWent(std::uint64_t webSession) {
    const std::lock_guard lock(m_mutex);
    const auto pages = m_pages.find(webSession);
    if (pages == m_pages.end() || --pages->second > 0)
        return;
    m_pages.erase(pages);
    if (m_holder && m_holder->caller.isOfPanel() && m_holder->caller.webSession == webSession)
        waitForPage();
}

/// That they are free is in the log in time, though nobody asks.
void Controls::waitForPage() {
    m_lastPage = m_settings.now();
    m_settings.lookAfter(s_withoutPage + std::chrono::milliseconds(100));
}
