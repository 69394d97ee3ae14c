#include "SessionList.h"

void SessionList::add(const ApiCaller& caller, std::chrono::system_clock::time_point now) {
    const std::lock_guard lock(m_mutex);
    m_sessions[caller.session] = {.id = caller.session,
                                  .user = caller.name,
                                  .uid = caller.uid,
                                  .pid = caller.pid,
                                  .role = caller.role,
                                  .since = now};
}

void SessionList::countRequest(std::uint64_t session) {
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_sessions.find(session); found != m_sessions.end())
        ++found->second.requests;
}

void SessionList::remove(std::uint64_t session) {
    const std::lock_guard lock(m_mutex);
    m_sessions.erase(session);
}

std::vector<SessionList::Session> SessionList::sessions() const {
    const std::lock_guard lock(m_mutex);
    std::vector<Session> all;
    for (const auto& [id, session] : m_sessions)
        all.push_back(session);
    return all;
}
