#include "RequestMemory.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "ApiFault.h"

RequestMemory::RequestMemory(Settings settings) : m_settings(std::move(settings)) {}

std::size_t RequestMemory::Entry::bytes() const {
    return request.size() + content.size() + (answer ? answer->body.size() : 0);
}

RequestMemory::EBegin RequestMemory::begin(const std::string& user, const std::string& request,
                                           const std::string& content,
                                           const std::shared_ptr<AnswerOnce>& pAnswer) {
    std::unique_lock lock(m_mutex);
    const Clock::time_point now = m_settings.now();
    forgetOld(now);
    Share& share = m_shares[user];
    if (const auto known = share.index.find(request); known != share.index.end()) {
        Entry& entry = *known->second;
        if (entry.content != content)
            return EBegin::Differs;
        if (!entry.answer) {
            // Those whose time was up: what hangs may be asked for again any number of times.
            std::erase_if(entry.waiting, [](const auto& pWaiting) { return pWaiting->isGiven(); });
            entry.waiting.push_back(pAnswer);
            return EBegin::Known;
        }
        const ApiAnswer answer = *entry.answer;
        lock.unlock();
        pAnswer->give(answer);
        return EBegin::Known;
    }
    while (!hasRoom(share)) {
        if (!forgetOldest(share))
            return EBegin::Full;
    }
    share.entries.push_back({request, content, std::nullopt, {pAnswer}, now});
    const auto position = std::prev(share.entries.end());
    share.index.emplace(request, position);
    share.bytes += position->bytes();
    m_bytes += position->bytes();
    ++m_size;
    return EBegin::New;
}

void RequestMemory::end(const std::string& user, const std::string& request, const ApiAnswer& answer) {
    std::vector<std::shared_ptr<AnswerOnce>> waiting;
    {
        const std::lock_guard lock(m_mutex);
        const auto owner = m_shares.find(user);
        if (owner == m_shares.end())
            return;
        Share& share = owner->second;
        const auto known = share.index.find(request);
        if (known == share.index.end() || known->second->answer)
            return;
        waiting.swap(known->second->waiting);
        if (ApiFault::isUndone(answer.status)) {
            forget(share, known->second);
        } else {
            known->second->answer = answer;
            share.bytes += answer.body.size();
            m_bytes += answer.body.size();
            forgetBeyondLimits(share);
        }
    }
    for (const auto& pAnswer : waiting)
        pAnswer->give(answer);
}

std::size_t RequestMemory::size() const {
    const std::lock_guard lock(m_mutex);
    return m_size;
}

void RequestMemory::forgetOld(Clock::time_point now) {
    for (auto owner = m_shares.begin(); owner != m_shares.end();) {
        Share& share = owner->second;
        auto position = share.entries.begin();
        while (position != share.entries.end() && now - position->begun > m_settings.keepTime) {
            const auto old = position++;
            if (old->answer)
                forget(share, old);
        }
        owner = share.entries.empty() ? m_shares.erase(owner) : std::next(owner);
    }
}

/// For one more.
bool RequestMemory::hasRoom(const Share& share) const {
    return share.entries.size() < m_settings.mostOfUser && share.bytes < m_settings.bytesOfUser &&
           m_size < m_settings.most && m_bytes < m_settings.bytes;
}

/// Where all together are too many, of the user that has most of them. False when all of these are going on.
bool RequestMemory::forgetOldest(Share& share) {
    Share* pShare = &share;
    if (share.entries.size() < m_settings.mostOfUser && share.bytes < m_settings.bytesOfUser) {
        const auto largest = std::max_element(
            m_shares.begin(), m_shares.end(),
            [](const auto& one, const auto& other) { return one.second.bytes < other.second.bytes; });
        pShare = &largest->second;
    }
    const auto oldest = std::find_if(pShare->entries.begin(), pShare->entries.end(),
                                     [](const Entry& entry) { return entry.answer.has_value(); });
    if (oldest == pShare->entries.end())
        return false;
    forget(*pShare, oldest);
    return true;
}

/// After an answer has come, which may be long.
void RequestMemory::forgetBeyondLimits(Share& share) {
    bool isForgotten = true;
    while (isForgotten && (share.bytes > m_settings.bytesOfUser || m_bytes > m_settings.bytes))
        isForgotten = forgetOldest(share);
}

void RequestMemory::forget(Share& share, Entries::iterator position) {
    share.bytes -= position->bytes();
    m_bytes -= position->bytes();
    --m_size;
    share.index.erase(position->request);
    share.entries.erase(position);
}
