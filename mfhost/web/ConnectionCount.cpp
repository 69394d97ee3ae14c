#include "ConnectionCount.h"

ConnectionCount::ConnectionCount(const HttpLimits& limits) : m_limits(limits) {}

std::string ConnectionCount::add(const Holder& holder) {
    const auto ofUser = m_ofUser.find(holder.uid);
    if (!holder.isFavoured && ofUser != m_ofUser.end() && ofUser->second >= m_limits.connectionsOfUser)
        return holder.name + " has " + std::to_string(ofUser->second) +
               " connections open, and may have no more";
    if (m_all >= m_limits.connections ||
        (!holder.isFavoured && m_others + m_limits.connectionsKept >= m_limits.connections))
        return "there are " + std::to_string(m_all) + " connections open, and there may be no more";
    if (holder.isRefused && m_refused >= m_limits.connectionsRefused)
        return "too many connections of users without a role are open";
    ++m_all;
    if (!holder.isFavoured)
        ++m_others;
    if (holder.isRefused)
        ++m_refused;
    ++m_ofUser[holder.uid];
    return {};
}

void ConnectionCount::remove(const Holder& holder) {
    --m_all;
    if (!holder.isFavoured)
        --m_others;
    if (holder.isRefused)
        --m_refused;
    const auto ofUser = m_ofUser.find(holder.uid);
    if (--ofUser->second == 0)
        m_ofUser.erase(ofUser);
}
