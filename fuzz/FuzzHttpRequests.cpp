#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/post.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Expect.h"
#include "HttpSession.h"
#include "WebGate.h"

// Whatever a client sends, however it is cut: the session reads the same requests as without any cut, answers
// each in order with what the handler gave it, ends what is no HTTP with one answer of its own, and is closed
// when the client is gone. The first bytes of an input say how it is cut and in which order it is answered.

namespace {

using Protocol = boost::asio::local::stream_protocol;
using Answer = std::function<void(ApiAnswer)>;

class Owner final : public IHttpSessionOwner {
public:
    explicit Owner(std::uint8_t order) : m_order(order) {}
    ~Owner() override { m_pDoor->close(); }

    const HttpLimits& limits() const override { return m_limits; }
    std::shared_ptr<ApiThreadDoor> door() const override { return m_pDoor; }
    bool takeRequest(const ApiCaller&, const HttpRequest&) override { return true; }
    std::size_t& unsent() override { return m_unsent; }
    void ended(std::uint64_t) override { hasEnded = true; }

    void handle(HttpRequest request, const ApiCaller&, Answer answer) override {
        expect(request.target.size() <= m_limits.target, "no target is longer than its limit");
        expect(request.body.size() <= m_limits.body, "no body is longer than its limit");
        expect(request.method != "HEAD", "the handler sees no HEAD");
        const bool isOwn = !m_gate.refusal(request, m_place);
        expect(!isOwn || !request.host.empty(), "at the web port a request names its host");
        expect(!isOwn || request.origin.empty() || request.origin.size() == request.host.size() + 7,
               "at the web port no page of another place asks");
        const std::string token = m_gate.tokenOf(request, m_place);
        expect(request.authorization.find(token) != std::string::npos,
               "on the machine itself only the header has a token");
        requests.push_back(request.method + " " + request.target + " " + request.body);
        ApiAnswer given;
        given.body = std::to_string(requests.size());
        if (m_order % 4 == 0) {
            answer(given);
            return;
        }
        m_waiting.emplace_back(std::move(answer), given);
        if (m_order % 4 == 1)
            std::reverse(m_waiting.begin(), m_waiting.end());
    }
    /// Gives the answers that wait; whether there were any.
    bool answerWaiting() {
        std::vector<std::pair<Answer, ApiAnswer>> waiting;
        waiting.swap(m_waiting);
        for (const auto& [answer, given] : waiting) {
            // Some are forgotten.
            if (m_order % 4 != 3)
                answer(given);
        }
        return !waiting.empty();
    }

    boost::asio::io_context io;
    std::vector<std::string> requests;
    bool hasEnded = false;

private:
    const std::uint8_t m_order;
    const HttpLimits m_limits;
    std::size_t m_unsent = 0;
    const WebGate m_gate{{.hasTls = false, .names = {}, .isCertified = {}, .cookie = "mfhost-w"}};
    const WebGate::Connection m_place{
        .localAddress = "127.0.0.1", .remoteAddress = "127.0.0.1", .isLoopback = true};
    std::vector<std::pair<Answer, ApiAnswer>> m_waiting;
    const std::shared_ptr<ApiThreadDoor> m_pDoor = std::make_shared<ApiThreadDoor>(
        [this](ApiThreadDoor::Work work) { boost::asio::post(io, std::move(work)); });
};

/// What a client that sends these bytes in such pieces is answered.
struct Conversation {
    std::vector<std::string> requests;
    std::string answers;

    Conversation(std::string_view bytes, std::size_t piece, std::uint8_t order) {
        int ends[2];
        expect(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends) == 0, "there are sockets");
        Owner owner(order);
        Protocol::socket stream(owner.io);
        stream.assign(Protocol(), ends[0]);
        {
            const auto pSession = std::make_shared<HttpSession<Protocol::socket>>(
                std::move(stream), owner, ApiCaller{.role = ERole::View, .session = 1}, std::nullopt);
            pSession->start();
        }
        const auto work = [&] {
            do {
                owner.io.restart();
                owner.io.poll();
                char text[4096];
                for (ssize_t count = 0; (count = ::recv(ends[1], text, sizeof text, 0)) > 0;)
                    answers.append(text, static_cast<std::size_t>(count));
            } while (owner.answerWaiting() || owner.io.poll() > 0);
        };
        while (!bytes.empty()) {
            const ssize_t count =
                ::send(ends[1], bytes.data(), std::min(piece, bytes.size()), MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count < 0)
                break;
            bytes.remove_prefix(static_cast<std::size_t>(count));
            work();
        }
        ::shutdown(ends[1], SHUT_WR);
        work();
        ::close(ends[1]);
        work();
        expect(owner.hasEnded, "the session ends with its client");
        expect(owner.unsent() == 0, "every byte that waited to be sent is accounted for");
        requests = std::move(owner.requests);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
    const Conversation whole(bytes, bytes.size() + 1, 0);
    const Conversation cut(bytes, 1 + data[0] % 16, data[1]);
    expect(whole.requests == cut.requests, "the same requests are read however the bytes are cut");

    // Interim answers come only when the body is not there yet.
    std::size_t count = 0;
    for (std::size_t at = 0; (at = cut.answers.find("HTTP/1.1 ", at)) != std::string::npos; ++at)
        count += cut.answers.compare(at, 12, "HTTP/1.1 100") != 0;
    expect(count == cut.requests.size() || count == cut.requests.size() + 1,
           "each request has one answer, and what is no request one at most");
    return 0;
}
