#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include "Backoff.h"
#include "BrokerConnection.h"
#include "FIDParameterList.h"
#include "ILink.h"
#include "ILinkHost.h"
#include "LinkCore.h"
#include "Wakeup.h"

/// This workplace at one broker: the connection that all of its links share, and the thread that serves it.
/// Made with the first link and gone with the last; LinkDriver alone uses it, on any thread.
class LinkSite {
public:
    /// The one of these settings' site and broker, made where there is none. Null with the reason where
    /// another link says otherwise about the broker, or there is no thread.
    static std::shared_ptr<LinkSite> of(const LinkSettings& settings, ILinkHost& host, std::string& error);

    LinkSite(const LinkSettings& settings, ILinkHost& host);
    /// Says goodbye to the broker, for half a second at most.
    ~LinkSite();
    LinkSite(const LinkSite&) = delete;
    LinkSite& operator=(const LinkSite&) = delete;

    void add(ILink& link);
    /// The link is not called any more when it returns.
    void remove(ILink& link);
    /// As LinkCore::send().
    bool send(ILink& link, const std::string& fid, const FIDParameterList& parameters);

private:
    using Clock = std::chrono::steady_clock;

    void run();
    int patience() const;
    void step(bool isReadable, bool isWritable);
    void giveUp(const std::string& fault) noexcept;
    void connect(Clock::time_point now);
    void serve(bool isReadable, bool isWritable);
    void leave();
    Clock::duration randomPart(Clock::duration longest);

    const std::string m_site;
    const LinkSettings::Broker m_broker;
    ILinkHost& m_host;
    const base::Wakeup m_wakeup{"a link"};
    const base::Wakeup m_changes{"a link's values"};
    std::mt19937_64 m_random{std::random_device()()};

    std::mutex m_mutex;
    LinkCore m_core;
    std::unique_ptr<BrokerConnection> m_pConnection;
    bool m_isConnected = false;
    Clock::time_point m_connectedAt{};
    Clock::time_point m_nextTry{};
    Backoff m_backoff;
    bool m_isStopping = false;
    std::thread m_thread;
};
