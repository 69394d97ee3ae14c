#pragma once

#include <cstddef>
#include <deque>
#include <list>
#include <string>
#include <unordered_map>
#include <unordered_set>

/// Remembers the last messages of each sender, so that one that comes twice is done once. Used by one thread.
class SeenIDs {
public:
    static constexpr std::size_t s_perSender = 4096;
    /// Boot IDs of senders; the one that was silent for longest gives way.
    static constexpr std::size_t s_senders = 256;

    /// Whether this is the first time. The sender is a boot ID.
    bool isNew(const std::string& sender, const std::string& id);

private:
    struct Sender {
        std::unordered_set<std::string> ids;
        std::deque<std::string> order;
        std::list<std::string>::iterator place;
    };

    std::unordered_map<std::string, Sender> m_senders;
    std::list<std::string> m_order;  ///< who was heard last stands last
};
