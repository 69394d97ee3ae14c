#include "HttpConnection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/beast/core/buffers_prefix.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <cerrno>
#include <cstring>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

namespace http = boost::beast::http;
namespace asio = boost::asio;
using boost::system::error_code;

namespace {

/// More than any answer has: a log of some thousand lines has less than a megabyte.
constexpr std::uint64_t s_largestBody = 64u << 20;

error_code systemError(int number) {
    return {number, boost::system::system_category()};
}

/// Waits until the socket is ready; false at the deadline.
bool isReady(int socket, short events, HttpConnection::Clock::time_point deadline) {
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - HttpConnection::Clock::now()).count();
        if (left <= 0)
            return false;
        pollfd watched{socket, events, 0};
        const int ready = ::poll(&watched, 1, static_cast<int>(std::min<long long>(left, 1'000'000)));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return true;
    }
}

/// The socket as the library reads it; no reading waits beyond the deadline.
class DeadlineStream {
public:
    DeadlineStream(int socket, HttpConnection::Clock::time_point deadline)
        : m_socket(socket), m_deadline(deadline) {}

    // The library prescribes the name.
    template <class Buffers>
    // NOLINTNEXTLINE(readability-identifier-naming)
    std::size_t read_some(const Buffers& buffers, error_code& error) {
        const asio::mutable_buffer buffer = *asio::buffer_sequence_begin(buffers);
        if (!isReady(m_socket, POLLIN, m_deadline))
            return failed(ETIMEDOUT, error);
        const ssize_t count = ::recv(m_socket, buffer.data(), buffer.size(), 0);
        if (count == 0) {
            error = asio::error::eof;
            return 0;
        }
        return done(count, error);
    }
    template <class Buffers>
    // NOLINTNEXTLINE(readability-identifier-naming)
    std::size_t read_some(const Buffers& buffers) {
        error_code error;
        const std::size_t count = read_some(buffers, error);
        if (error)
            throw boost::system::system_error(error);
        return count;
    }

private:
    static std::size_t failed(int number, error_code& error) {
        error = systemError(number);
        return 0;
    }
    static std::size_t done(ssize_t count, error_code& error) {
        if (count >= 0) {
            error = {};
            return static_cast<std::size_t>(count);
        }
        // Nothing was taken yet: the library calls again.
        if (errno == EAGAIN || errno == EINTR)
            error = {};
        else
            error = systemError(errno);
        return 0;
    }

    const int m_socket;
    const HttpConnection::Clock::time_point m_deadline;
};

/// Sends all of it in as few pieces as the socket takes. A host may answer and close before it has read all:
/// then its answer is there to be read, so that a broken pipe is no error here.
error_code sendAll(int socket, std::string_view bytes, HttpConnection::Clock::time_point deadline) {
    while (!bytes.empty()) {
        if (!isReady(socket, POLLOUT, deadline))
            return systemError(ETIMEDOUT);
        const ssize_t count = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0)
            bytes.remove_prefix(static_cast<std::size_t>(count));
        else if (errno == EPIPE || errno == ECONNRESET)
            return {};
        else if (errno != EAGAIN && errno != EINTR)
            return systemError(errno);
    }
    return {};
}

HttpConnection::Answer faultOf(const error_code& error) {
    using EFault = HttpConnection::EFault;
    const bool isLate = error == systemError(ETIMEDOUT);
    return {isLate ? EFault::Late : EFault::Broken, isLate ? "no answer" : error.message(), 0, {}};
}

/// The rest of an answer, whole.
HttpConnection::Answer receive(DeadlineStream& stream, boost::beast::flat_buffer& buffer,
                               http::response_parser<http::string_body>& parser) {
    error_code error;
    parser.body_limit(s_largestBody);
    http::read(stream, buffer, parser, error);
    if (error)
        return faultOf(error);
    HttpConnection::Answer answer;
    answer.status = parser.get().result_int();
    answer.body = std::move(parser.get().body());
    answer.isLast = !parser.get().keep_alive();
    return answer;
}

}  // namespace

HttpConnection::Answer HttpConnection::exchange(const std::string& method, const std::string& target,
                                                const std::string& body, Clock::time_point deadline) {
    if (!m_socket) {
        Answer answer = connect(deadline);
        if (answer.fault != EFault::None)
            return answer;
    }
    Answer answer = converse(method, target, body, deadline);
    if (answer.fault != EFault::None || answer.isLast)
        m_socket.reset();
    return answer;
}

HttpConnection::Answer HttpConnection::connect(Clock::time_point deadline) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_path.size() >= sizeof address.sun_path)
        return {EFault::Absent,
                "the path of a socket has at most " + std::to_string(sizeof address.sun_path - 1) + " bytes",
                0,
                {}};
    std::memcpy(address.sun_path, m_path.data(), m_path.size());
    base::UniqueFd made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made)
        return {EFault::Broken, std::strerror(errno), 0, {}};
    // A host that does not accept has its queue full some time: the system says "again" and tells nothing
    // when there is room.
    while (::connect(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int reason = errno;
        if (reason == EINTR)
            continue;
        if (reason != EAGAIN)
            return {reason == EACCES || reason == EPERM ? EFault::NotAllowed : EFault::Absent,
                    std::strerror(reason),
                    0,
                    {}};
        if (Clock::now() >= deadline)
            return {EFault::Late, "it accepts no connection", 0, {}};
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    m_socket = std::move(made);
    ++m_connections;
    return {};
}

HttpConnection::Answer HttpConnection::send(const std::string& method, const std::string& target,
                                            const std::string& body, Clock::time_point deadline) {
    http::request<http::string_body> request;
    request.method_string(method);
    request.target(target);
    request.set(http::field::host, "localhost");
    request.set(http::field::user_agent, "mfctl");
    if (!body.empty())
        request.set(http::field::content_type, "application/json");
    request.body() = body;
    request.prepare_payload();
    std::ostringstream text;
    text << request;
    const error_code error = sendAll(m_socket.get(), text.str(), deadline);
    return error ? faultOf(error) : Answer();
}

HttpConnection::Answer HttpConnection::converse(const std::string& method, const std::string& target,
                                                const std::string& body, Clock::time_point deadline) {
    if (Answer fault = send(method, target, body, deadline); fault.fault != EFault::None)
        return fault;
    DeadlineStream stream(m_socket.get(), deadline);
    boost::beast::flat_buffer buffer;
    http::response_parser<http::string_body> parser;
    return receive(stream, buffer, parser);
}

HttpConnection::Answer HttpConnection::follow(const std::string& target, const Take& take,
                                              Clock::time_point deadline, Clock::time_point end) {
    Answer answer;
    if (!m_socket)
        answer = connect(deadline);
    if (answer.fault == EFault::None)
        answer = send("GET", target, {}, deadline);
    if (answer.fault == EFault::None)
        answer = receivePieces(take, deadline, end);
    // What the host goes on to send is of no use.
    m_socket.reset();
    return answer;
}

HttpConnection::Answer HttpConnection::receivePieces(const Take& take, Clock::time_point deadline,
                                                     Clock::time_point end) {
    DeadlineStream heads(m_socket.get(), deadline);
    error_code error;
    boost::beast::flat_buffer buffer;
    http::response_parser<http::empty_body> head;
    http::read_header(heads, buffer, head, error);
    if (error)
        return faultOf(error);
    if (head.get().result() != http::status::ok) {
        http::response_parser<http::string_body> whole(std::move(head));
        return receive(heads, buffer, whole);
    }
    DeadlineStream pieces(m_socket.get(), end);
    http::response_parser<http::buffer_body> parser(std::move(head));
    parser.body_limit(boost::none);
    std::array<char, 65536> piece{};
    while (!parser.is_done()) {
        auto& body = parser.get().body();
        body.data = piece.data();
        body.size = piece.size();
        http::read_some(pieces, buffer, parser, error);
        if (error && error != http::error::need_buffer)
            return faultOf(error);
        if (!take({piece.data(), piece.size() - body.size}))
            break;
    }
    return {EFault::None, {}, parser.get().result_int(), {}};
}
