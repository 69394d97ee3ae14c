#include "LinkSite.h"

#include <poll.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <system_error>

#include "RandomID.h"
#include "ThreadName.h"

namespace {

constexpr int s_stepMs = 50;
constexpr std::chrono::milliseconds s_goodbye{500};

}  // namespace

std::shared_ptr<LinkSite> LinkSite::of(const LinkSettings& settings, ILinkHost& host, std::string& error) {
    static std::mutex s_mutex;
    static std::map<std::string, std::weak_ptr<LinkSite>> s_sites;
    const std::string key =
        settings.site + "\n" + settings.broker.host + "\n" + std::to_string(settings.broker.port);
    const std::lock_guard lock(s_mutex);
    std::erase_if(s_sites, [](const auto& site) { return site.second.expired(); });
    if (auto pSite = s_sites[key].lock()) {
        if (pSite->m_broker == settings.broker)
            return pSite;
        error =
            "another link has the same broker and other credentials, authorities or certificates for it; "
            "all links of " +
            settings.site + " share one connection";
        return nullptr;
    }
    try {
        auto pSite = std::make_shared<LinkSite>(settings, host);
        s_sites[key] = pSite;
        return pSite;
    } catch (const std::system_error& fault) {
        error = std::string("there is no thread: ") + fault.what();
        return nullptr;
    }
}

LinkSite::LinkSite(const LinkSettings& settings, ILinkHost& host)
    : m_site(settings.site),
      m_broker(settings.broker),
      m_host(host),
      m_core(
          m_site, base::randomID(), host, [this](auto longest) { return randomPart(longest); }, Clock::now()),
      m_backoff([this](auto longest) { return randomPart(longest); }) {
    m_host.open(m_site, m_wakeup.fd(), m_changes.fd());
    try {
        m_thread = std::thread(&LinkSite::run, this);
    } catch (const std::system_error&) {
        m_host.close(m_site);
        throw;
    }
}

LinkSite::~LinkSite() {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    m_wakeup.wake();
    m_thread.join();
    m_host.close(m_site);
}

LinkSite::Clock::duration LinkSite::randomPart(Clock::duration longest) {
    return Clock::duration(std::uniform_int_distribution<Clock::rep>(0, longest.count())(m_random));
}

void LinkSite::add(ILink& link) {
    const std::lock_guard lock(m_mutex);
    m_core.add(link, Clock::now());
    m_wakeup.wake();
}

void LinkSite::remove(ILink& link) {
    const std::lock_guard lock(m_mutex);
    m_core.remove(link);
}

bool LinkSite::send(ILink& link, const std::string& fid, const FIDParameterList& parameters) {
    const std::lock_guard lock(m_mutex);
    const bool isSent = m_core.send(link, fid, parameters, Clock::now());
    // What the socket has not taken whole the site's thread writes. Otherwise it would only be in the way.
    if (m_pConnection && m_pConnection->wantsWrite())
        m_wakeup.wake();
    return isSent;
}

void LinkSite::run() {
    base::nameThread(m_site, "link");
    for (;;) {
        pollfd waits[] = {{m_wakeup.fd(), POLLIN, 0}, {-1, POLLIN, 0}, {m_changes.fd(), POLLIN, 0}};
        int patienceMs = s_stepMs;
        {
            const std::lock_guard lock(m_mutex);
            if (m_isStopping)
                break;
            patienceMs = patience();
            if (m_pConnection) {
                waits[1].fd = m_pConnection->fd();
                if (m_pConnection->wantsWrite())
                    waits[1].events |= POLLOUT;
            }
        }
        if (::poll(waits, std::size(waits), patienceMs) < 0)
            waits[0].revents = waits[1].revents = waits[2].revents = 0;
        if (waits[0].revents != 0)
            static_cast<void>(m_wakeup.take());
        const bool hasNews = waits[2].revents != 0 && m_changes.take();
        const std::lock_guard lock(m_mutex);
        if (hasNews)
            m_core.noteChange();
        try {
            step((waits[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0,
                 (waits[1].revents & (POLLOUT | POLLERR)) != 0);
        } catch (const std::exception& error) {
            giveUp(error.what());
        }
    }
    const std::lock_guard lock(m_mutex);
    leave();
}

/// With the lock. How long the thread waits for something to happen, in milliseconds.
int LinkSite::patience() const {
    const auto due = m_core.due();
    if (!due)
        return s_stepMs;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*due - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, s_stepMs));
}

/// With the lock.
void LinkSite::step(bool isReadable, bool isWritable) {
    const auto now = Clock::now();
    if (!m_pConnection && now >= m_nextTry)
        connect(now);
    else if (m_pConnection)
        serve(isReadable, isWritable);
    m_core.step(now);
}

/// With the lock. There was no memory, that is: the next connection may have it.
void LinkSite::giveUp(const std::string& fault) noexcept {
    m_isConnected = false;
    m_nextTry = Clock::now() + m_backoff.pause();
    try {
        m_core.lost(fault, Clock::now());
    } catch (const std::exception&) {
        // The links say it with the next one.
    }
    m_pConnection.reset();
}

/// With the lock. A new one each time: nothing of a lost connection is sent again.
void LinkSite::connect(Clock::time_point now) {
    m_pConnection = std::make_unique<BrokerConnection>(
        m_site, m_broker, m_core.will(),
        BrokerConnection::Handlers{
            .connected =
                [this] {
                    m_isConnected = true;
                    m_connectedAt = Clock::now();
                    m_core.connected(*m_pConnection, m_connectedAt);
                },
            .received = [this](const LinkMessage& message) { m_core.received(message, Clock::now()); },
            .refused = [this](const std::string& reason) { m_core.refused(reason); }});
    m_nextTry = now + m_backoff.begin();
    m_pConnection->open();
    serve(false, false);
}

/// With the lock.
void LinkSite::serve(bool isReadable, bool isWritable) {
    if (m_pConnection->fault().empty())
        m_pConnection->step(isReadable, isWritable);
    if (m_pConnection->fault().empty())
        return;
    const auto now = Clock::now();
    const std::string fault = m_pConnection->fault();
    if (const auto pause = m_isConnected ? m_backoff.lost(now - m_connectedAt) : std::nullopt)
        m_nextTry = now + *pause;
    m_isConnected = false;
    // It is not used any more, before it goes.
    m_core.lost(fault, now);
    m_pConnection.reset();
}

/// With the lock: no link is left that could be called meanwhile.
void LinkSite::leave() {
    if (!m_pConnection || !m_isConnected)
        return;
    m_core.leave();
    const auto end = Clock::now() + s_goodbye;
    while (m_pConnection->pending() > 0 && m_pConnection->fault().empty() && Clock::now() < end) {
        pollfd wait{m_pConnection->fd(), POLLIN, 0};
        if (m_pConnection->wantsWrite())
            wait.events |= POLLOUT;
        ::poll(&wait, 1, 10);
        m_pConnection->step((wait.revents & POLLIN) != 0, (wait.revents & POLLOUT) != 0);
    }
    m_pConnection->close();
}
