#include "WebListener.h"

#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "ApiFault.h"
#include "HostLog.h"
#include "HttpSession.h"
#include "JsonText.h"
#include "JsonValue.h"
#include "PageAnswer.h"
#include "Throttle.h"

namespace {

using Clock = std::chrono::steady_clock;
using ECode = ApiFault::ECode;
using Error = boost::system::error_code;
using Tcp = boost::asio::ip::tcp;
namespace ssl = boost::asio::ssl;

constexpr std::chrono::milliseconds s_pauseAfterFault{100};
constexpr const char* s_session = "/api/v1/session";
constexpr const char* s_live = "/api/v1/live";
constexpr const char* s_stream = "/api/v1/stream";
/// Of the stream, that one client is sent in a tick.
constexpr int s_piecesPerTick = 4;
constexpr const char* s_stopping = "stopping";
constexpr const char* s_stoppingText = "the host is shutting down";

std::string addressText(const boost::asio::ip::address& address) {
    // One of IPv4 at a listener of IPv6.
    if (address.is_v6() && address.to_v6().is_v4_mapped())
        return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, address.to_v6()).to_string();
    return address.to_string();
}

std::string_view pathOf(const HttpRequest& request) {
    return std::string_view(request.target).substr(0, request.target.find('?'));
}

bool isPageFile(std::string_view path) {
    return !path.starts_with("/api/") && path != "/api" && path != "/healthz" && path != "/metrics";
}

/// The machine's own, as far as it knows itself.
std::vector<std::string> machineNames() {
    std::array<char, 256> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0')
        return {};
    std::string text = name.data();
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return {text, text.substr(0, text.find('.'))};
}

std::optional<ssl::context> tlsOf(const WebPort& port) {
    if (!port.hasTls())
        return std::nullopt;
    ssl::context context(ssl::context::tls_server);
    context.set_options(ssl::context::default_workarounds | ssl::context::no_tlsv1 |
                        ssl::context::no_tlsv1_1 | ssl::context::no_compression);
    context.use_certificate_chain(boost::asio::buffer(port.certificate()));
    context.use_private_key(boost::asio::buffer(port.key()), ssl::context::pem);
    if (::SSL_CTX_check_private_key(context.native_handle()) != 1)
        throw std::runtime_error("the key is not that of the certificate");
    return context;
}

/// The member that is a text; an ApiFault says why there is none.
std::string textIn(const JsonValue& object, const std::string& name) {
    const JsonValue* pValue = object.find(name);
    if (!pValue || pValue->kind != JsonValue::EKind::Text || pValue->text.empty())
        throw ApiFault(ECode::RequestInvalid, "\"" + name + "\" is missing, or no text");
    return pValue->text;
}

/// What comes in pieces ends with the session that has asked for it.
class OfSession final : public IAnswerBody {
public:
    OfSession(std::shared_ptr<IAnswerBody> pBody, const WebSessions& sessions, std::uint64_t session)
        : m_pBody(std::move(pBody)), m_sessions(sessions), m_session(session) {}

    Piece next() override { return m_sessions.isOpen(m_session) ? m_pBody->next() : Piece(); }

private:
    const std::shared_ptr<IAnswerBody> m_pBody;
    const WebSessions& m_sessions;
    const std::uint64_t m_session;
};

JsonValue readObject(const std::string& text) {
    JsonValue object = JsonValue::read(text);
    if (object.kind != JsonValue::EKind::Object)
        throw ApiFault(ECode::RequestInvalid,
                       std::string("this is ") + object.inWords() + " where an object is needed");
    return object;
}

}  // namespace

WebListener::WebListener(Parts parts, boost::asio::io_context& io, std::shared_ptr<ApiThreadDoor> pDoor,
                         Call call)
    : m_parts(std::move(parts)),
      m_io(io),
      m_pDoor(std::move(pDoor)),
      m_call(std::move(call)),
      m_tls(tlsOf(m_parts.port)),
      m_gate({.hasTls = m_parts.port.hasTls(),
              .names = m_parts.port.address().isLoopback() ? std::vector<std::string>() : machineNames(),
              .isCertified =
                  [this](const std::string& name) {
                      X509* const pCertificate =
                          m_tls ? ::SSL_CTX_get0_certificate(m_tls->native_handle()) : nullptr;
                      return pCertificate &&
                             ::X509_check_host(pCertificate, name.data(), name.size(), 0, nullptr) == 1;
                  },
              .cookie = WebGate::cookieName(m_parts.workplace, m_parts.port.hasTls())}),
      m_rate(m_parts.limits.requestsPerSecond, Clock::now()),
      m_channel(m_parts.live, m_parts.sessions, m_parts.channel),
      m_acceptor(io),
      m_acceptTimer(io),
      m_ticker(io) {}

WebListener::~WebListener() = default;

// --- connections

void WebListener::start() {
    const Tcp protocol = m_parts.port.address().isIPv6() ? Tcp::v6() : Tcp::v4();
    m_acceptor.assign(protocol, m_parts.port.takeListener().release());
    accept();
}

void WebListener::accept() {
    m_acceptor.async_accept([this](const Error& error, PlainStream socket) {
        if (m_isStopping)
            return;
        if (!error) {
            take(std::move(socket));
            accept();
            return;
        }
        static base::Throttle s_throttle;
        if (s_throttle.passes())
            hostLog(sal::LogOutput::eWarning) << "the web panel cannot take a connection: " << error.message()
                                              << "; tried again until it can" << std::endl;
        m_acceptTimer.expires_after(s_pauseAfterFault);
        m_acceptTimer.async_wait([this](const Error& cancelled) {
            if (!cancelled && !m_isStopping)
                accept();
        });
    });
}

void WebListener::take(PlainStream socket) {
    Error error;
    const auto local = socket.local_endpoint(error);
    const auto remote = error ? Tcp::endpoint() : socket.remote_endpoint(error);
    // Who is gone already, or one too many: the connection ends here.
    if (error || !makeRoom())
        return;
    const std::string localAddress = addressText(local.address());
    const std::uint64_t id = ++m_lastConnection;
    Connection& connection = m_connections[id];
    connection.place = {.localAddress = localAddress,
                        .remoteAddress = addressText(remote.address()),
                        .isLoopback = localAddress == "::1" || localAddress.starts_with("127.")};
    if (m_tls)
        beginTls(id, std::move(socket));
    else
        beginHttp(id, std::move(socket));
}

/// A connection costs a stranger nothing: those of sessions stay, the strangers' oldest one goes. One of a
/// session goes only while nothing is under way on it; a browser opens another one then.
bool WebListener::makeRoom() {
    std::size_t count = 0;
    Connection* pStranger = nullptr;
    Connection* pIdle = nullptr;
    for (auto& [id, connection] : m_connections) {
        if (connection.isPage || connection.isGivingWay)
            continue;
        ++count;
        if (!connection.isKnown && !pStranger)
            pStranger = &connection;
        if (connection.isKnown && !pIdle && connection.isIdle())
            pIdle = &connection;
    }
    if (count < m_parts.limits.connections)
        return true;
    Connection* const pLeaving = pStranger ? pStranger : pIdle;
    if (!pLeaving)
        return false;
    pLeaving->isGivingWay = true;
    // It may end at once, and with it the object that has the function.
    const auto close = pLeaving->close;
    close();
    return true;
}

void WebListener::beginTls(std::uint64_t id, PlainStream socket) {
    struct Handshake {
        TlsStream stream;
        boost::asio::steady_timer timer;
    };
    const auto pHandshake = std::make_shared<Handshake>(
        Handshake{TlsStream(std::move(socket), *m_tls), boost::asio::steady_timer(m_io)});
    // What is under way ends with the socket, and removes the connection.
    m_connections[id].stop = m_connections[id].close = [pHandshake] { closeStream(pHandshake->stream); };
    pHandshake->timer.expires_after(m_parts.limits.handshake);
    pHandshake->timer.async_wait([pHandshake](const Error& cancelled) {
        if (!cancelled)
            closeStream(pHandshake->stream);
    });
    pHandshake->stream.async_handshake(ssl::stream_base::server, [this, id, pHandshake](const Error& error) {
        pHandshake->timer.cancel();
        if (error || m_isStopping)
            remove(id);
        else
            beginHttp(id, std::move(pHandshake->stream));
    });
}

template <class Stream>
void WebListener::beginHttp(std::uint64_t id, Stream stream) {
    // Who asks is told by each request.
    ApiCaller nobody;
    nobody.session = id;
    const auto pSession = std::make_shared<HttpSession<Stream>>(
        std::move(stream), *this, nobody, std::nullopt,
        [this, id](Stream& given, const HttpRequest& request) { return takeOver(id, given, request); });
    Connection& connection = m_connections[id];
    connection.stop = [pSession] { pSession->stop(); };
    connection.close = [pSession] { pSession->close(); };
    connection.isIdle = [pSession] { return pSession->isIdle(); };
    pSession->start();
}

template <class Stream>
std::optional<ApiAnswer> WebListener::takeOver(std::uint64_t id, Stream& stream, const HttpRequest& request) {
    Connection& connection = m_connections.at(id);
    if (auto refusal = m_gate.refusal(request, connection.place))
        return refusal;
    const bool isStream = pathOf(request) == s_stream;
    if ((pathOf(request) != s_live && !isStream) || request.method != "GET")
        return ApiFault(ECode::NotFound,
                        std::string("a WebSocket is had by GET ") + s_live + " or " + s_stream)
            .answer();
    if (isStream)
        connection.stream = request.target;
    connection.token = m_gate.tokenOf(request, connection.place);
    // Elsewhere than on the machine itself strangers do not even get a channel.
    const bool isKnown = m_parts.sessions.isToken(connection.token);
    if (!connection.place.isLoopback && !isKnown)
        return ApiFault(ECode::SessionNeeded, "a session is needed; mfctl panel opens one").answer();
    connection.pPage = LiveConnection::make(std::move(stream), request, id, *this);
    const auto close = [pPage = connection.pPage] { pPage->close(); };
    // Who has said who it is has been told by the channel.
    connection.stop = [pPage = connection.pPage] {
        pPage->sendLast(LiveChannel::bye(s_stopping, s_stoppingText));
    };
    connection.close = close;
    connection.isIdle = [] { return false; };
    connection.isKnown = isKnown;
    connection.pPage->start();
    return std::nullopt;
}

void WebListener::remove(std::uint64_t id) {
    // It may be what calls.
    const auto node = m_connections.extract(id);
    if (m_isStopping && m_connections.empty() && m_emptied)
        std::exchange(m_emptied, nullptr)();
}

void WebListener::stop(std::function<void()> emptied) {
    m_isStopping = true;
    m_emptied = std::move(emptied);
    Error ignored;
    m_acceptor.close(ignored);
    m_acceptTimer.cancel();
    m_ticker.cancel();
    m_channel.end(s_stopping, s_stoppingText);
    std::vector<std::function<void()>> all;
    for (const auto& [id, connection] : m_connections)
        all.push_back(connection.stop);
    for (const auto& stop : all)
        stop();
    if (m_connections.empty() && m_emptied)
        std::exchange(m_emptied, nullptr)();
}

void WebListener::closeAll() {
    std::vector<std::function<void()>> all;
    for (const auto& [id, connection] : m_connections)
        all.push_back(connection.close);
    for (const auto& close : all)
        close();
}

// --- requests

bool WebListener::takeRequest(const ApiCaller& connection, const HttpRequest& request) {
    Connection& place = m_connections.at(connection.session);
    const bool isOfSession = m_parts.sessions.isToken(m_gate.tokenOf(request, place.place));
    place.isKnown = place.isKnown || isOfSession;
    return m_rate.take(isOfSession, Clock::now());
}

void WebListener::handle(HttpRequest request, const ApiCaller& connection,
                         std::function<void(ApiAnswer)> answer) {
    const auto give = [answer = std::move(answer)](ApiAnswer given) {
        addSafety(given);
        answer(std::move(given));
    };
    try {
        const WebGate::Connection& place = m_connections.at(connection.session).place;
        const std::string_view path = pathOf(request);
        if (auto refusal = m_gate.refusal(request, place)) {
            give(*refusal);
            return;
        }
        if (isPageFile(path)) {
            give(answerPage(path, request));
            return;
        }
        if (path == s_session && request.method == "POST") {
            give(openSession(request, connection));
            return;
        }
        const auto session = m_parts.sessions.find(m_gate.tokenOf(request, place));
        if (!session) {
            ApiAnswer refusal =
                ApiFault(ECode::SessionNeeded, "a session is needed; mfctl panel opens one").answer();
            refusal.fields.emplace_back("WWW-Authenticate", "Bearer");
            give(std::move(refusal));
            return;
        }
        if (path == s_session && request.method == "DELETE") {
            give(endSession(*session, connection));
            return;
        }
        if (path == s_session)
            throw ApiFault(ECode::MethodNotAllowed, std::string(s_session) + " takes POST, DELETE")
                .withAllow("POST, DELETE");
        if (!request.isSafe() && !mayAct(session->id))
            throw ApiFault(
                ECode::TooMany,
                "a session has " + std::to_string(m_parts.limits.actionsPerSecond) + " actions a second");
        m_call({.method = std::move(request.method),
                .target = std::move(request.target),
                .contentType = std::move(request.contentType),
                .body = std::move(request.body),
                .caller = callerOf(*session, m_connections.at(connection.session), connection.session)},
               [this, give, id = session->id](ApiAnswer given) {
                   if (given.pMore)
                       given.pMore =
                           std::make_shared<OfSession>(std::move(given.pMore), m_parts.sessions, id);
                   give(std::move(given));
               });
    } catch (const ApiFault& fault) {
        give(fault.answer());
    } catch (const std::exception& error) {
        hostLog(sal::LogOutput::eError)
            << "a request of the web panel is broken off: " << error.what() << std::endl;
        give(ApiFault(ECode::Internal, error.what()).answer());
    }
}

ApiCaller WebListener::callerOf(const WebSessions::Session& session, const Connection& connection,
                                std::uint64_t id) const {
    return {.role = session.role,
            .name = session.user,
            .uid = session.uid,
            .session = id,
            .place = "web session " + std::to_string(session.id) + " from " + connection.place.remoteAddress,
            .webSession = session.id};
}

bool WebListener::mayAct(std::uint64_t session) {
    std::erase_if(m_actions, [this](const auto& rate) { return !m_parts.sessions.isOpen(rate.first); });
    const auto now = Clock::now();
    return m_actions.try_emplace(session, m_parts.limits.actionsPerSecond, now).first->second.take(true, now);
}

ApiAnswer WebListener::openSession(const HttpRequest& request, const ApiCaller& connection) {
    const Connection& from = m_connections.at(connection.session);
    const WebGate::Connection& place = from.place;
    if (!request.contentType.starts_with("application/json"))
        throw ApiFault(ECode::MediaType, "the body must be of the type application/json");
    const JsonValue body = readObject(request.body);
    for (const auto& [name, value] : body.members) {
        if (name != "code")
            throw ApiFault(ECode::RequestInvalid, "there is no member \"" + name + "\"; known is code");
    }
    const WebSessions::Opened opened = m_parts.sessions.open(textIn(body, "code"), place.remoteAddress);
    if (!opened.refusal.empty())
        throw ApiFault(ECode::NotAllowed, opened.refusal);
    const WebSessions::Session& session = opened.session;
    hostLog(sal::LogOutput::eInfo) << "the web panel is opened from " << place.remoteAddress << " by "
                                   << session.user << " with the role " << inWords(session.role)
                                   << ", session " << session.id << std::endl;
    m_parts.recorder(callerOf(session, from, connection.session), "open the web panel");
    JsonText json;
    json.beginObject();
    // Elsewhere no script gets to see it.
    if (place.isLoopback)
        json.member("token", opened.token);
    json.member("role", inWords(session.role))
        .member("user", session.user)
        .member("workplace", m_parts.workplace)
        .endObject();
    ApiAnswer answer{.body = json.take()};
    if (!place.isLoopback)
        answer.fields.emplace_back(
            "Set-Cookie",
            m_gate.cookieWith(
                opened.token,
                std::chrono::duration_cast<std::chrono::seconds>(WebSessions::s_sessionTime).count()));
    return answer;
}

ApiAnswer WebListener::endSession(const WebSessions::Session& session, const ApiCaller& connection) {
    const Connection& from = m_connections.at(connection.session);
    if (m_parts.sessions.end(session.id)) {
        const ApiCaller caller = callerOf(session, from, connection.session);
        hostLog(sal::LogOutput::eInfo) << caller.who() << " signs out of the web panel" << std::endl;
        m_parts.recorder(caller, "sign out of the web panel");
    }
    ApiAnswer answer{.body = "{}"};
    if (!from.place.isLoopback)
        answer.fields.emplace_back("Set-Cookie", m_gate.cookieWith("", 0));
    return answer;
}

// --- pages

void WebListener::pageCame(std::uint64_t id, const std::string& message) {
    Connection& connection = m_connections.at(id);
    try {
        const JsonValue first = readObject(message);
        if (first.find("authorize"))
            connection.token = textIn(first, "authorize");
    } catch (const ApiFault& fault) {
        connection.pPage->sendLast(
            LiveChannel::bye("limit", std::string("the first message is not understood: ") + fault.what()));
        return;
    }
    const auto session = m_parts.sessions.find(connection.token);
    if (!session) {
        connection.pPage->sendLast(LiveChannel::bye("revoked", "a session is needed; mfctl panel opens one"));
        return;
    }
    const auto pages = static_cast<std::size_t>(std::count_if(
        m_connections.begin(), m_connections.end(), [](const auto& each) { return each.second.isPage; }));
    if (pages >= m_parts.limits.pages) {
        connection.pPage->sendLast(
            LiveChannel::bye("limit", std::to_string(pages) + " pages are open, and there may be no more"));
        return;
    }
    connection.isPage = true;
    if (!connection.stream.empty()) {
        openStream(id, *session);
        return;
    }
    connection.toldOf = session->id;
    m_parts.pageFollower(session->id, true);
    m_channel.join(id, *connection.pPage, *session);
    // It has everything at once, not at the next tick.
    m_channel.tick(Clock::now());
    if (!std::exchange(m_isTicking, true))
        tickLater();
}

/// What the API answers to it at once, it answers piece by piece.
void WebListener::openStream(std::uint64_t id, const WebSessions::Session& session) {
    Connection& connection = m_connections.at(id);
    const auto pGiven = std::make_shared<ApiAnswer>(ApiAnswer{.status = 500, .body = {}});
    ApiCall call{.method = "GET",
                 .target = connection.stream,
                 .contentType = {},
                 .body = {},
                 .caller = callerOf(session, connection, id)};
    m_call(call, [pGiven](ApiAnswer given) { *pGiven = std::move(given); });
    if (!pGiven->pMore) {
        connection.pPage->sendLast(std::make_shared<const std::string>(pGiven->body));
        return;
    }
    connection.pStream = std::make_shared<OfSession>(pGiven->pMore, m_parts.sessions, session.id);
    if (!std::exchange(m_isTicking, true))
        tickLater();
}

bool WebListener::hasStreams() const {
    return std::any_of(m_connections.begin(), m_connections.end(),
                       [](const auto& each) { return each.second.pStream != nullptr; });
}

/// Who has not taken what came before is passed over: the rings keep it for a while.
void WebListener::tickStreams() {
    for (auto& [id, connection] : m_connections) {
        for (int i = 0; connection.pStream && connection.pPage->unsent() == 0 && i < s_piecesPerTick; ++i) {
            IAnswerBody::Piece piece = connection.pStream->next();
            if (!piece.text.empty())
                connection.pPage->send(std::make_shared<const std::string>(std::move(piece.text)));
            if (piece.next == IAnswerBody::ENext::End) {
                connection.pStream.reset();
                connection.pPage->sendLast(LiveChannel::bye("end", "the stream has come to its end"));
            }
            if (piece.next != IAnswerBody::ENext::AtOnce)
                break;
        }
    }
}

void WebListener::pageWent(std::uint64_t id) {
    m_channel.leave(id);
    const auto connection = m_connections.find(id);
    const std::uint64_t session = connection == m_connections.end() ? 0 : connection->second.toldOf;
    if (session > 0)
        m_parts.pageFollower(session, false);
    remove(id);
}

void WebListener::tickLater() {
    if (m_isStopping || (m_channel.isEmpty() && !hasStreams())) {
        m_isTicking = false;
        return;
    }
    m_ticker.expires_after(m_parts.limits.tick);
    m_ticker.async_wait([this](const Error& cancelled) {
        if (!cancelled && !m_channel.isEmpty())
            m_channel.tick(Clock::now());
        if (!cancelled)
            tickStreams();
        tickLater();
    });
}
