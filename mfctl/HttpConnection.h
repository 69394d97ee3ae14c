#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "UniqueFd.h"

/// HTTP/1.1 to a host's control socket: one request at a time, over a connection that is kept as long as the
/// host keeps it. No call waits longer than its deadline. One thread.
class HttpConnection {
public:
    using Clock = std::chrono::steady_clock;

    enum class EFault {
        None,
        Absent,      ///< nobody listens there
        NotAllowed,  ///< the system does not let this user connect
        Late,        ///< the deadline came first
        Broken,      ///< the connection ended before the whole answer was there, or what came is no HTTP
    };
    struct Answer {
        EFault fault = EFault::None;
        std::string reason;  ///< the system's words; empty for None
        unsigned status = 0;
        std::string body;
        bool isLast = false;  ///< the connection ends after it
    };

    explicit HttpConnection(std::string socket) : m_path(std::move(socket)) {}

    /// Sends a request and waits for its answer; connects first where there is no connection. After any fault
    /// the connection is closed. A body is sent as JSON.
    Answer exchange(const std::string& method, const std::string& target, const std::string& body,
                    Clock::time_point deadline);

    /// Takes a piece of a body; false where it wants no more.
    using Take = std::function<bool(std::string_view piece)>;
    /// Sends a GET and hands over the body of its answer as it comes, until it ends, no more is wanted or the
    /// connection breaks off. The answer's head comes before the deadline, all of it before the other one. An
    /// answer of another status than 200 is not handed over but comes back whole.
    Answer follow(const std::string& target, const Take& take, Clock::time_point deadline,
                  Clock::time_point end);

    const std::string& path() const { return m_path; }
    /// How often it has connected.
    unsigned connections() const { return m_connections; }

private:
    Answer connect(Clock::time_point deadline);
    Answer send(const std::string& method, const std::string& target, const std::string& body,
                Clock::time_point deadline);
    Answer receivePieces(const Take& take, Clock::time_point deadline, Clock::time_point end);
    Answer converse(const std::string& method, const std::string& target, const std::string& body,
                    Clock::time_point deadline);

    const std::string m_path;
    base::UniqueFd m_socket;
    unsigned m_connections = 0;
};
