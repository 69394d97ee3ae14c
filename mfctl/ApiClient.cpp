#include "ApiClient.h"

#include <algorithm>
#include <random>
#include <string_view>
#include <thread>
#include <utility>

#include "ControlError.h"

namespace {

constexpr unsigned s_tries = 3;
constexpr std::chrono::milliseconds s_pause{100};

char digit(unsigned value) {
    return "0123456789ABCDEF"[value & 15];
}

std::string newRequest() {
    std::random_device random;
    std::string request = "mfctl-";
    for (int word = 0; word < 4; ++word) {
        for (unsigned bits = random(), count = 0; count < 8; ++count, bits >>= 4)
            request += digit(bits);
    }
    return request;
}

std::string secondsText(std::chrono::milliseconds limit) {
    return std::to_string(std::chrono::ceil<std::chrono::seconds>(limit).count()) + " s";
}

}  // namespace

std::string ApiClient::encoded(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             c == '-' || c == '_' || c == '.' || c == '~';
        const auto byte = static_cast<unsigned char>(c);
        if (isPlain)
            result += c;
        else
            result.append({'%', digit(byte >> 4), digit(byte)});
    }
    return result;
}

ApiClient::Reply ApiClient::get(const std::string& target, Milliseconds limit) {
    return exchange("GET", target, {}, limit);
}

ApiClient::Reply ApiClient::post(const std::string& target, Json members, Milliseconds limit) {
    const auto deadline = HttpConnection::Clock::now() + limit;
    members["request"] = newRequest();
    for (Milliseconds left = limit;;) {
        const Milliseconds wait = std::min(left, s_longestWait);
        members["timeoutMs"] = wait.count();
        // Bytes that are no UTF-8 cannot stand in JSON.
        const std::string body = members.dump(-1, ' ', false, Json::error_handler_t::replace);
        Reply reply = exchange("POST", target, body, wait + s_grace);
        left = std::chrono::ceil<Milliseconds>(deadline - HttpConnection::Clock::now());
        if (reply.status != 202 || left <= s_pause)
            return reply;
        // The same request again is the same action: the host goes on waiting for it.
        std::this_thread::sleep_for(s_pause);
        left -= s_pause;
    }
}

ApiClient::Reply ApiClient::exchange(const std::string& method, const std::string& target,
                                     const std::string& body, Milliseconds limit) {
    const auto deadline = HttpConnection::Clock::now() + limit;
    HttpConnection::Answer answer;
    bool wasBroken = false;
    for (unsigned tries = 1;; ++tries) {
        answer = m_connection.exchange(method, "/api/v1" + target, body, deadline);
        if (answer.fault != HttpConnection::EFault::Broken || tries == s_tries)
            break;
        wasBroken = true;
        std::this_thread::sleep_for(s_pause);
    }
    check(answer, wasBroken, method == "POST", limit);
    return replyOf(std::move(answer));
}

void ApiClient::check(const HttpConnection::Answer& answer, bool wasBroken, bool isAction,
                      Milliseconds limit) const {
    switch (answer.fault) {
        case HttpConnection::EFault::None:
            break;
        case HttpConnection::EFault::NotAllowed:
            throw ControlError(EExit::NotAllowed, socket() + ": " + answer.reason);
        case HttpConnection::EFault::Late:
            throw ControlError(EExit::NotFinished, "the host at " + socket() + " does not answer within " +
                                                       secondsText(limit) + " (" + answer.reason +
                                                       "); mfctl doctor tells what it does");
        case HttpConnection::EFault::Absent:
            if (!wasBroken)
                throw ControlError(EExit::NoHost, "no host answers at " + socket() + ": " + answer.reason);
            [[fallthrough]];
        case HttpConnection::EFault::Broken:
            throw ControlError(EExit::NoHost,
                               "the host at " + socket() + " broke the connection off: " + answer.reason +
                                   (isAction ? "; whether it has done what was asked is not known" : ""));
    }
}

ApiClient::Reply ApiClient::replyOf(HttpConnection::Answer answer) const {
    Reply reply{answer.status, std::move(answer.body), {}};
    reply.json = Json::parse(reply.body, nullptr, false);
    if (reply.json.is_discarded())
        reply.json = nullptr;
    const bool isSuccess = reply.status == 200 || reply.status == 202;
    if (isSuccess ? !reply.json.is_object() : reply.status < 400 || reply.status > 599)
        throw ControlError(EExit::NoHost, "what answers at " + socket() + " is no host: it answers " +
                                              std::to_string(reply.status) +
                                              (isSuccess ? " without a JSON object" : ""));
    return reply;
}

ApiClient::Reply ApiClient::follow(const std::string& target,
                                   const std::function<bool(const std::string& line)>& take,
                                   HttpConnection::Clock::time_point end) {
    std::string line;
    const auto takePiece = [&](std::string_view piece) {
        while (!piece.empty()) {
            const std::size_t size = std::min(piece.find('\n'), piece.size());
            line += piece.substr(0, size);
            if (size == piece.size())
                return true;
            piece.remove_prefix(size + 1);
            if (!take(std::exchange(line, {})))
                return false;
        }
        return true;
    };
    HttpConnection::Answer answer =
        m_connection.follow("/api/v1" + target, takePiece, HttpConnection::Clock::now() + s_usualLimit, end);
    check(answer, false, false, s_usualLimit);
    if (answer.status == 200)
        return {answer.status, {}, Json::object()};
    return replyOf(std::move(answer));
}
