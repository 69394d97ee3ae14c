#include "ApiServer.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "ApiFault.h"
#include "ConnectionCount.h"
#include "HostLog.h"
#include "HttpSession.h"
#include "Needed.h"
#include "RequestRate.h"
#include "ThreadName.h"
#include "WebListener.h"

namespace {

using Protocol = boost::asio::local::stream_protocol;
using Clock = std::chrono::steady_clock;
using ECode = ApiFault::ECode;

/// In one go, before those who are connected have their turn.
constexpr int s_acceptedAtOnce = 64;
constexpr std::chrono::milliseconds s_pauseAfterRefusals{10};
constexpr std::chrono::milliseconds s_stopTime{1500};
constexpr std::chrono::milliseconds s_stopPatience{2000};
constexpr std::chrono::minutes s_betweenLines{1};
constexpr std::chrono::seconds s_webIdleTime{10};

constexpr const char* s_noRole =
    "you have no role here: the members of the group mfview may look, those of mfoperator operate, those of "
    "mfadmin do everything";

}  // namespace

/// What there is of a server. All but stop() and sessions() on its thread.
class ApiServer::Thread final : public IHttpSessionOwner {
public:
    Thread(Settings settings, Handler handler)
        : m_settings(std::move(settings)),
          m_handler(std::move(handler)),
          m_roles(m_settings.roles),
          m_connections(m_settings.limits),
          m_rate(m_settings.limits.requestsPerSecond, Clock::now()),
          m_pDoor(std::make_shared<ApiThreadDoor>(
              [this](ApiThreadDoor::Work work) { boost::asio::post(m_io, std::move(work)); })) {}

    ~Thread() override {
        stop();
        // A last answer of another thread may be on its way into m_io.
        m_pDoor->close();
    }

    std::string addWeb(const Web& web) {
        // Browsers keep more connections than they use, and there are fewer.
        HttpLimits limits = m_settings.limits;
        limits.idleTime = s_webIdleTime;
        try {
            WebListener::Parts parts{.port = web.port,
                                     .sessions = web.sessions,
                                     .live = web.live,
                                     .workplace = web.workplace,
                                     .http = limits,
                                     .limits = {},
                                     .channel = {}};
            parts.pageFollower = web.pageFollower;
            parts.recorder = web.recorder;
            m_pWeb = std::make_unique<WebListener>(
                std::move(parts), m_io, m_pDoor,
                [this](const ApiCall& given, auto answer) { call(given, std::move(answer)); });
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    }
    void start(base::UniqueFd listener) {
        if (listener) {
            m_acceptor.assign(Protocol(), listener.release());
            waitForConnections();
        }
        if (m_pWeb)
            m_pWeb->start();
        // Without a listener nothing is under way that it could wait for.
        m_thread = base::neededThread("the API", [this] { run(); });
    }
    void stop();
    std::vector<Session> sessions() const { return m_list.sessions(); }

    const HttpLimits& limits() const override { return m_settings.limits; }
    std::shared_ptr<ApiThreadDoor> door() const override { return m_pDoor; }
    bool takeRequest(const ApiCaller& caller, const HttpRequest& request) override;
    void handle(HttpRequest request, const ApiCaller& connection,
                std::function<void(ApiAnswer)> answer) override;
    std::size_t& unsent() override { return m_unsent; }
    void ended(std::uint64_t session) override;

private:
    void call(const ApiCall& call, std::function<void(ApiAnswer)> answer) const;

    using HttpSessionOfSocket = HttpSession<Protocol::socket>;

    struct Held {
        std::shared_ptr<HttpSessionOfSocket> pSession;
        ConnectionCount::Holder holder;
    };

    void run();
    void waitForConnections();
    void accept();
    bool admit(base::UniqueFd socket);
    static void refuse(const base::UniqueFd& socket, const ApiAnswer& answer);
    void pauseAccepting(std::chrono::milliseconds time);
    void beginStop();
    void endStopIfEmpty();
    void closeAll();
    std::vector<std::shared_ptr<HttpSessionOfSocket>> held() const;
    bool mayTell(std::optional<Clock::time_point>& told);

    const Settings m_settings;
    const Handler m_handler;
    PeerRoles m_roles;
    ConnectionCount m_connections;
    RequestRate m_rate;
    SessionList m_list;
    std::size_t m_unsent = 0;
    std::uint64_t m_lastSession = 0;
    std::optional<Clock::time_point> m_toldShort;
    std::optional<Clock::time_point> m_toldDriver;

    boost::asio::io_context m_io{1};
    const std::shared_ptr<ApiThreadDoor> m_pDoor;
    Protocol::acceptor m_acceptor{m_io};
    boost::asio::steady_timer m_acceptTimer{m_io};
    boost::asio::steady_timer m_stopTimer{m_io};
    std::map<std::uint64_t, Held> m_sessions;
    std::unique_ptr<WebListener> m_pWeb;
    bool m_isStopping = false;

    std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_hasEnded = false;
    std::thread m_thread;
};

void ApiServer::Thread::run() {
    base::nameThread("api");
    for (bool isDone = false; !isDone;) {
        try {
            m_io.run();
            isDone = true;
        } catch (const std::exception& error) {
            hostLog(sal::LogOutput::eError) << "the API goes on after: " << error.what() << std::endl;
        }
    }
    const std::lock_guard lock(m_mutex);
    m_hasEnded = true;
    m_ended.notify_all();
}

void ApiServer::Thread::waitForConnections() {
    m_acceptor.async_wait(Protocol::acceptor::wait_read, [this](const boost::system::error_code& error) {
        if (!error && !m_isStopping)
            accept();
    });
}

void ApiServer::Thread::accept() {
    bool isOneRefused = false;
    for (int i = 0; i < s_acceptedAtOnce; ++i) {
        base::UniqueFd socket(
            ::accept4(m_acceptor.native_handle(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (socket) {
            isOneRefused = !admit(std::move(socket)) || isOneRefused;
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            if (mayTell(m_toldShort))
                hostLog(sal::LogOutput::eWarning)
                    << "the control socket cannot take a connection: " << std::strerror(errno)
                    << "; tried again until it can" << std::endl;
            pauseAccepting(m_settings.limits.acceptPause);
            return;
        }
    }
    // Who connects again and again only to be refused is not worth a whole processor.
    if (isOneRefused)
        pauseAccepting(s_pauseAfterRefusals);
    else
        waitForConnections();
}

/// Who connects meanwhile waits in the listener's queue.
void ApiServer::Thread::pauseAccepting(std::chrono::milliseconds time) {
    m_acceptTimer.expires_after(time);
    m_acceptTimer.async_wait([this](const boost::system::error_code& cancelled) {
        if (!cancelled && !m_isStopping)
            accept();
    });
}

/// False when it is refused at once.
bool ApiServer::Thread::admit(base::UniqueFd socket) {
    std::optional<PeerRoles::Peer> peer = m_roles.look(socket.get());
    if (!peer)
        return false;
    ConnectionCount::Holder holder{.uid = peer->uid,
                                   .name = peer->name,
                                   .isFavoured = peer->isFavoured,
                                   .isRefused = peer->role == ERole::None};
    // Who is refused is told when he has asked: many clients take a connection that ends before for none.
    std::optional<ApiAnswer> refusal;
    if (holder.isRefused)
        refusal = ApiFault(ECode::NotAllowed, s_noRole).answer();
    std::string fullness = m_connections.add(holder);
    const auto doubt = holder.isRefused || !fullness.empty() ? PeerRoles::Refusal() : m_roles.refusal(*peer);
    if (!doubt.reason.empty()) {
        if (mayTell(m_toldDriver))
            hostLog(sal::LogOutput::eWarning)
                << "the control socket refuses a connection: " << doubt.reason << std::endl;
        m_connections.remove(holder);
        holder.isRefused = true;
        holder.isFavoured = false;
        refusal = ApiFault(doubt.isForNow ? ECode::Busy : ECode::NotAllowed, doubt.reason).answer();
        fullness = m_connections.add(holder);
    }
    if (!fullness.empty()) {
        refuse(socket, refusal ? *refusal : ApiFault(ECode::TooMany, fullness).answer());
        return false;
    }
    Protocol::socket stream(m_io);
    boost::system::error_code error;
    if (stream.assign(Protocol(), socket.get(), error)) {
        m_connections.remove(holder);
        refuse(socket, ApiFault(ECode::Busy, "the connection cannot be served: " + error.message()).answer());
        return false;
    }
    static_cast<void>(socket.release());

    m_lastSession = m_settings.sessionNumber ? m_settings.sessionNumber() : m_lastSession + 1;
    ApiCaller caller{
        .role = peer->role, .name = peer->name, .uid = peer->uid, .pid = peer->pid, .session = m_lastSession};
    if (!holder.isRefused)
        m_list.add(caller, std::chrono::system_clock::now());
    const auto pSession = std::make_shared<HttpSessionOfSocket>(std::move(stream), *this, std::move(caller),
                                                                std::move(refusal));
    m_sessions.emplace(m_lastSession, Held{pSession, holder});
    pSession->start();
    return true;
}

/// Without waiting for what the client has to say.
void ApiServer::Thread::refuse(const base::UniqueFd& socket, const ApiAnswer& answer) {
    const std::string text = answerHead(answer, true, std::chrono::system_clock::now()) + answer.body;
    static_cast<void>(::send(socket.get(), text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
    // Unread input would have the client read an error after the answer.
    std::array<char, 4096> piece{};
    static_cast<void>(::recv(socket.get(), piece.data(), piece.size(), MSG_DONTWAIT));
}

bool ApiServer::Thread::takeRequest(const ApiCaller& caller, const HttpRequest&) {
    m_list.countRequest(caller.session);
    const auto found = m_sessions.find(caller.session);
    return m_rate.take(found != m_sessions.end() && found->second.holder.isFavoured, Clock::now());
}

void ApiServer::Thread::handle(HttpRequest request, const ApiCaller& connection,
                               std::function<void(ApiAnswer)> answer) {
    call({.method = std::move(request.method),
          .target = std::move(request.target),
          .contentType = std::move(request.contentType),
          .body = std::move(request.body),
          .caller = connection},
         std::move(answer));
}

void ApiServer::Thread::call(const ApiCall& call, std::function<void(ApiAnswer)> answer) const {
    try {
        m_handler(call, std::move(answer));
    } catch (const std::exception& error) {
        // The answer says so by itself when the last copy of it is gone.
        hostLog(sal::LogOutput::eError) << call.method << " " << call.target << " of " << call.caller.name
                                        << ": " << error.what() << std::endl;
    }
}

void ApiServer::Thread::ended(std::uint64_t session) {
    const auto found = m_sessions.find(session);
    if (found == m_sessions.end())
        return;
    m_connections.remove(found->second.holder);
    m_list.remove(session);
    m_sessions.erase(found);
    endStopIfEmpty();
}

void ApiServer::Thread::endStopIfEmpty() {
    if (m_isStopping && m_sessions.empty() && (!m_pWeb || m_pWeb->isEmpty()))
        m_stopTimer.cancel();
}

void ApiServer::Thread::stop() {
    if (!m_thread.joinable())
        return;
    // What the API thread's handler has posted so far comes into the queue only when it returns. The second
    // turn is after that, so that no answer which was given before the stop is lost to it.
    boost::asio::post(m_io, [this] { boost::asio::post(m_io, [this] { beginStop(); }); });
    {
        std::unique_lock lock(m_mutex);
        if (!m_ended.wait_for(lock, s_stopPatience, [this] { return m_hasEnded; }))
            hostLog(sal::LogOutput::eWarning)
                << "the API still handles a request; the end waits for it" << std::endl;
    }
    m_thread.join();
}

void ApiServer::Thread::beginStop() {
    m_isStopping = true;
    boost::system::error_code ignored;
    m_acceptor.close(ignored);
    m_acceptTimer.cancel();
    for (const auto& pSession : held())
        pSession->stop();
    if (m_pWeb)
        m_pWeb->stop([this] { endStopIfEmpty(); });
    if (m_sessions.empty() && (!m_pWeb || m_pWeb->isEmpty()))
        return;
    m_stopTimer.expires_after(s_stopTime);
    m_stopTimer.async_wait([this](const boost::system::error_code& cancelled) {
        if (!cancelled)
            closeAll();
    });
}

void ApiServer::Thread::closeAll() {
    for (const auto& pSession : held())
        pSession->close();
    if (m_pWeb)
        m_pWeb->closeAll();
}

/// They leave m_sessions when they close.
std::vector<std::shared_ptr<ApiServer::Thread::HttpSessionOfSocket>> ApiServer::Thread::held() const {
    std::vector<std::shared_ptr<HttpSessionOfSocket>> all;
    for (const auto& [id, held] : m_sessions)
        all.push_back(held.pSession);
    return all;
}

bool ApiServer::Thread::mayTell(std::optional<Clock::time_point>& told) {
    const Clock::time_point now = Clock::now();
    if (told && now - *told < s_betweenLines)
        return false;
    told = now;
    return true;
}

ApiServer::ApiServer(Settings settings, Handler handler)
    : m_pThread(std::make_unique<Thread>(std::move(settings), std::move(handler))) {}

ApiServer::~ApiServer() = default;

std::string ApiServer::addWeb(const Web& web) {
    return m_pThread->addWeb(web);
}

void ApiServer::start(base::UniqueFd listener) {
    m_pThread->start(std::move(listener));
}

void ApiServer::stop() {
    m_pThread->stop();
}

std::vector<ApiServer::Session> ApiServer::sessions() const {
    return m_pThread->sessions();
}
