#include "SeenIDs.h"

bool SeenIDs::isNew(const std::string& sender, const std::string& id) {
    auto known = m_senders.find(sender);
    if (known == m_senders.end()) {
        if (m_senders.size() >= s_senders) {
            m_senders.erase(m_order.front());
            m_order.pop_front();
        }
        known = m_senders.emplace(sender, Sender()).first;
        known->second.place = m_order.insert(m_order.end(), sender);
    }
    Sender& found = known->second;
    m_order.splice(m_order.end(), m_order, found.place);
    if (!found.ids.insert(id).second)
        return false;
    found.order.push_back(id);
    if (found.order.size() > s_perSender) {
        found.ids.erase(found.order.front());
        found.order.pop_front();
    }
    return true;
}
