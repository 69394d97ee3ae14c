#pragma once

#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

#include "HttpConnection.h"
#include "JsonView.h"

/// Asks a host over its API. What breaks off is asked again, since every action has a request ID with which
/// the host does it once. Each call throws a ControlError where there is no answer. Main thread.
class ApiClient {
public:
    using Json = nlohmann::json;
    using Milliseconds = std::chrono::milliseconds;

    struct Reply {
        unsigned status = 0;
        std::string body;  ///< as it came
        Json json;         ///< an object, but of an error maybe another value; null for no JSON

        bool isError() const { return status >= 400; }
        JsonView view() const { return JsonView(json); }
    };

    explicit ApiClient(const std::string& socket) : m_connection(socket) {}

    /// The target below /api/v1, with its query.
    Reply get(const std::string& target, Milliseconds limit = s_usualLimit);
    /// An action: the members, and a request ID of its own. It has the limit for its end; the answer's status
    /// is 202 where it goes on after that.
    Reply post(const std::string& target, Json members, Milliseconds limit = s_usualLimit);

    /// The lines of an answer that may have no end, each as it comes, until it ends or no more is wanted. An
    /// error comes back whole; its lines are none. end is when all of it is to be there.
    Reply follow(const std::string& target, const std::function<bool(const std::string& line)>& take,
                 HttpConnection::Clock::time_point end);

    const std::string& socket() const { return m_connection.path(); }
    /// How often it has connected: where that changes, another host may answer.
    unsigned connections() const { return m_connection.connections(); }

    /// For what the host answers at once.
    static constexpr Milliseconds s_usualLimit{10'000};
    /// What the host has to answer beyond the limit of an action.
    static constexpr Milliseconds s_grace{5'000};
    /// As long as a host lets one request wait; a longer wait takes several.
    static constexpr Milliseconds s_longestWait{60'000};

    /// A part of a path or query as it may stand there.
    static std::string encoded(const std::string& text);

private:
    void check(const HttpConnection::Answer& answer, bool wasBroken, bool isAction, Milliseconds limit) const;
    Reply replyOf(HttpConnection::Answer answer) const;
    Reply exchange(const std::string& method, const std::string& target, const std::string& body,
                   Milliseconds limit);

    HttpConnection m_connection;
};
