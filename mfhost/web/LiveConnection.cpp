#include "LiveConnection.h"

#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <chrono>
#include <cstddef>
#include <deque>
#include <utility>

namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using Error = boost::system::error_code;

constexpr std::chrono::seconds s_firstMessage{5};
constexpr std::chrono::seconds s_handshake{5};
/// A page that has not answered a ping for so long is gone.
constexpr std::chrono::seconds s_idle{60};
/// For the last message, and the farewell after it.
constexpr std::chrono::seconds s_lastWords{2};
constexpr std::size_t s_longestMessage = 64 * 1024;
/// Beyond the first one a page has nothing to say.
constexpr unsigned s_mostMessages = 100;
/// What the system takes before the connection counts as not sent is little, so that a slow page is seen.
constexpr int s_systemsBuffer = 128 * 1024;

template <class Stream>
class WebSocketPage final : public LiveConnection,
                            public std::enable_shared_from_this<WebSocketPage<Stream>> {
public:
    WebSocketPage(Stream stream, const HttpRequest& request, std::uint64_t id, ILiveOwner& owner)
        : m_stream(std::move(stream)), m_timer(m_stream.get_executor()), m_id(id), m_owner(owner) {
        m_request.method(http::verb::get);
        m_request.version(11);
        m_request.target(request.target);
        m_request.set(http::field::host, request.host);
        m_request.set(http::field::connection, "upgrade");
        m_request.set(http::field::upgrade, "websocket");
        m_request.set(http::field::sec_websocket_version, "13");
        m_request.set(http::field::sec_websocket_key, request.webSocketKey);
    }

    void start() override {
        Error ignored;
        beast::get_lowest_layer(m_stream).set_option(
            boost::asio::socket_base::send_buffer_size(s_systemsBuffer), ignored);
        beast::get_lowest_layer(m_stream).set_option(boost::asio::ip::tcp::no_delay(true), ignored);
        m_stream.set_option(websocket::stream_base::timeout{
            .handshake_timeout = s_handshake, .idle_timeout = s_idle, .keep_alive_pings = true});
        // The library would name itself.
        m_stream.set_option(websocket::stream_base::decorator(
            [](websocket::response_type& answer) { answer.erase(http::field::server); }));
        m_stream.read_message_max(s_longestMessage);
        m_stream.text(true);
        m_stream.auto_fragment(false);
        closeAfter(s_handshake);
        m_stream.async_accept(m_request, [page = self()](const Error& error) {
            if (error) {
                page->close();
                return;
            }
            page->m_isOpen = true;
            if (!page->m_isLast)
                page->waitForFirst();
            page->read();
            page->write();
        });
    }

    void send(LiveChannel::Text message) override {
        if (m_isClosed || m_isLast)
            return;
        m_unsent += message->size();
        m_messages.push_back(std::move(message));
        write();
    }
    std::size_t unsent() const override { return m_unsent; }
    void sendLast(LiveChannel::Text message) override {
        send(std::move(message));
        m_isLast = true;
        closeAfter(s_lastWords);
    }

    void close() override {
        if (m_isClosed)
            return;
        m_isClosed = true;
        m_timer.cancel();
        Error ignored;
        beast::get_lowest_layer(m_stream).close(ignored);
        m_owner.pageWent(m_id);
    }

private:
    std::shared_ptr<WebSocketPage> self() { return this->shared_from_this(); }

    void closeAfter(std::chrono::seconds time) {
        m_timer.expires_after(time);
        m_timer.async_wait([page = self()](const Error& cancelled) {
            if (!cancelled)
                page->close();
        });
    }

    void waitForFirst() {
        m_timer.expires_after(s_firstMessage);
        m_timer.async_wait([page = self()](const Error& cancelled) {
            if (!cancelled && page->m_messageCount == 0)
                page->sendLast(LiveChannel::bye("limit", "no first message has come within 5 s"));
        });
    }

    /// Reading goes on for as long as the page is there: that is how its end is seen, and its answers to
    /// pings.
    void read() {
        m_stream.async_read(m_input, [page = self()](const Error& error, std::size_t) {
            if (error) {
                page->close();
                return;
            }
            if (!page->m_isClosed)
                page->take();
        });
    }

    void take() {
        const bool isFirst = m_messageCount++ == 0;
        if (isFirst) {
            m_timer.cancel();
            m_owner.pageCame(m_id, beast::buffers_to_string(m_input.data()));
        } else if (m_messageCount > s_mostMessages && !m_isLast) {
            sendLast(LiveChannel::bye("limit", "a page has nothing to say beyond its first message"));
        }
        m_input.consume(m_input.size());
        if (!m_isClosed)
            read();
    }

    void write() {
        if (!m_isOpen || m_isWriting || m_isClosed)
            return;
        if (m_messages.empty()) {
            if (m_isLast)
                m_stream.async_close(websocket::close_code::normal,
                                     [page = self()](const Error&) { page->close(); });
            return;
        }
        m_isWriting = true;
        m_stream.async_write(boost::asio::buffer(*m_messages.front()),
                             [page = self()](const Error& error, std::size_t) {
                                 page->m_isWriting = false;
                                 if (error) {
                                     page->close();
                                     return;
                                 }
                                 page->m_unsent -= page->m_messages.front()->size();
                                 page->m_messages.pop_front();
                                 page->write();
                             });
    }

    websocket::stream<Stream> m_stream;
    boost::asio::steady_timer m_timer;
    http::request<http::empty_body> m_request;
    const std::uint64_t m_id;
    ILiveOwner& m_owner;
    beast::flat_buffer m_input;
    unsigned m_messageCount = 0;
    std::deque<LiveChannel::Text> m_messages;
    std::size_t m_unsent = 0;
    bool m_isOpen = false;  ///< the answer to the request is sent
    bool m_isWriting = false;
    bool m_isLast = false;
    bool m_isClosed = false;
};

}  // namespace

std::shared_ptr<LiveConnection> LiveConnection::make(PlainStream stream, const HttpRequest& request,
                                                     std::uint64_t id, ILiveOwner& owner) {
    return std::make_shared<WebSocketPage<PlainStream>>(std::move(stream), request, id, owner);
}

std::shared_ptr<LiveConnection> LiveConnection::make(TlsStream stream, const HttpRequest& request,
                                                     std::uint64_t id, ILiveOwner& owner) {
    return std::make_shared<WebSocketPage<TlsStream>>(std::move(stream), request, id, owner);
}
