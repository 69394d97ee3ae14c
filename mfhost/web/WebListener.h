#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "HttpLimits.h"
#include "IHttpSessionOwner.h"
#include "ILiveOwner.h"
#include "ILiveSource.h"
#include "LiveChannel.h"
#include "LiveConnection.h"
#include "RequestRate.h"
#include "WebGate.h"
#include "WebPort.h"
#include "WebSessions.h"

/// Serves the web port: takes connections, gives out the page's files, opens and ends sessions, keeps the
/// channel to each open page, and has the API answer everything else that a session asks for. Owned by
/// ApiServer, on whose thread it runs.
class WebListener final : public IHttpSessionOwner, private ILiveOwner {
public:
    struct Limits {
        std::size_t pages = 32;            ///< that are open
        std::size_t connections = 32;      ///< beside these
        unsigned requestsPerSecond = 500;  ///< of all connections
        unsigned actionsPerSecond = 20;    ///< of one session
        std::chrono::milliseconds tick{50};
        std::chrono::seconds handshake{10};
    };
    /// The host's own; all of it lives as long as the listener, but the port.
    struct Parts {
        WebPort& port;
        WebSessions& sessions;
        ILiveSource& live;
        std::string workplace;  ///< the workplace file
        HttpLimits http;        ///< of each connection
        Limits limits;
        LiveChannel::Settings channel;
        /// Told on the API's thread of each page of a session that opens, and of its end.
        std::function<void(std::uint64_t session, bool isThere)> pageFollower = [](std::uint64_t, bool) {};
        /// Told there of a session that is opened, or ended by itself, as who has done what.
        std::function<void(const ApiCaller& caller, const std::string& what)> recorder =
            [](const ApiCaller&, const std::string&) {};
    };
    using Call = std::function<void(const ApiCall& call, std::function<void(ApiAnswer)> answer)>;

    /// call answers what the API is asked. Throws where certificate or key are none.
    WebListener(Parts parts, boost::asio::io_context& io, std::shared_ptr<ApiThreadDoor> pDoor, Call call);
    ~WebListener() override;
    WebListener(const WebListener&) = delete;
    WebListener& operator=(const WebListener&) = delete;

    /// API thread, as all that follows; or before it runs.
    void start();
    /// Takes no more; tells those who are there. isEmpty() when all have gone.
    void stop(std::function<void()> emptied);
    void closeAll();
    bool isEmpty() const { return m_connections.empty(); }

    const HttpLimits& limits() const override { return m_parts.http; }
    std::shared_ptr<ApiThreadDoor> door() const override { return m_pDoor; }
    bool takeRequest(const ApiCaller& connection, const HttpRequest& request) override;
    void handle(HttpRequest request, const ApiCaller& connection,
                std::function<void(ApiAnswer)> answer) override;
    std::size_t& unsent() override { return m_unsent; }
    void ended(std::uint64_t connection) override { remove(connection); }

private:
    using PlainStream = LiveConnection::PlainStream;
    using TlsStream = LiveConnection::TlsStream;

    struct Connection {
        WebGate::Connection place;
        std::function<void()> stop;
        std::function<void()> close;
        std::shared_ptr<LiveConnection> pPage;  ///< of one that has become a page's channel
        std::string token;                      ///< of the request that it began with
        std::string stream;                     ///< its target, where it asks for the stream
        std::shared_ptr<IAnswerBody> pStream;   ///< once it is known who asks
        std::function<bool()> isIdle = [] { return false; };
        bool isKnown = false;      ///< a request of a session has come by it
        bool isPage = false;       ///< of a session
        std::uint64_t toldOf = 0;  ///< the session that the follower of pages knows of
        bool isGivingWay = false;  ///< it ends, to make room
    };

    void accept();
    void take(PlainStream socket);
    bool makeRoom();
    void beginTls(std::uint64_t id, PlainStream socket);
    template <class Stream>
    void beginHttp(std::uint64_t id, Stream stream);
    template <class Stream>
    std::optional<ApiAnswer> takeOver(std::uint64_t id, Stream& stream, const HttpRequest& request);
    void remove(std::uint64_t connection);

    ApiAnswer openSession(const HttpRequest& request, const ApiCaller& connection);
    ApiAnswer endSession(const WebSessions::Session& session, const ApiCaller& connection);
    bool mayAct(std::uint64_t session);

    void openStream(std::uint64_t id, const WebSessions::Session& session);
    void tickStreams();
    bool hasStreams() const;
    ApiCaller callerOf(const WebSessions::Session& session, const Connection& connection,
                       std::uint64_t id) const;
    void pageCame(std::uint64_t id, const std::string& message) override;
    void pageWent(std::uint64_t id) override;
    void tickLater();

    const Parts m_parts;
    boost::asio::io_context& m_io;
    const std::shared_ptr<ApiThreadDoor> m_pDoor;
    const Call m_call;
    std::optional<boost::asio::ssl::context> m_tls;
    const WebGate m_gate;
    RequestRate m_rate;
    std::map<std::uint64_t, RequestRate> m_actions;  ///< by session
    LiveChannel m_channel;
    boost::asio::ip::tcp::acceptor m_acceptor;
    boost::asio::steady_timer m_acceptTimer;
    boost::asio::steady_timer m_ticker;
    bool m_isTicking = false;
    std::map<std::uint64_t, Connection> m_connections;
    std::uint64_t m_lastConnection = 0;
    std::size_t m_unsent = 0;
    bool m_isStopping = false;
    std::function<void()> m_emptied;
};
