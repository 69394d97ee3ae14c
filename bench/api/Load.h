#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "UniqueFd.h"

/// Asks a control socket at a steady rate on several connections, and notes how long each answer takes: from
/// the time at which the request was due, so that a server that falls behind does not slow down what measures
/// it. Who is half a second late leaves out what has come due meanwhile, which shows in how many were
/// answered in a second: asked at once, it would be more than that rate. One thread.
class Load {
public:
    using Clock = std::chrono::steady_clock;

    /// One without a body is a GET, else a POST; each "#" in the body becomes a number of the request's own.
    struct Request {
        std::string target;
        std::string body = {};
    };
    struct Settings {
        std::string path;
        std::vector<Request> requests{{"/api/v1/drivers"}};  ///< asked by turns
        int perSecond = 1000;
        int connections = 20;
        double seconds = 5;
        /// No more is asked as soon as it says so; looked at several times a second.
        std::function<bool()> isOver = [] { return false; };
    };
    struct Result {
        std::size_t answered = 0;
        std::size_t failed = 0;  ///< another status than 200, a connection that ended, no answer within 10 s
        std::string firstFailure;  ///< in words; empty for none
        double seconds = 0;
        std::vector<double> microseconds;  ///< of those answered, in order of size
    };

    /// Connects; throws where that fails.
    explicit Load(Settings settings);
    Result run();

private:
    struct Connection {
        base::UniqueFd socket;
        bool isAsked = false;
        Clock::time_point due;
        Clock::time_point asked;
        std::string input;
    };

    bool connect(Connection& connection) const;
    void ask(Connection& connection, Clock::time_point due);
    void take(Connection& connection);
    void noteFailure(std::string what);
    void fail(Connection& connection, const std::string& what);
    std::string nextRequest();

    const Settings m_settings;
    std::size_t m_asked = 0;
    std::vector<Connection> m_connections;
    Result m_result;
};
