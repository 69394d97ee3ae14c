#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "UniqueFd.h"

/// Asks a control socket at a steady rate on several connections, and notes how long each answer takes: from
/// the time at which the request was due, so that a server that falls behind does not slow down what measures
/// it. One thread.
class Load {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::string path;
        std::string target = "/api/v1/drivers";
        int perSecond = 1000;
        int connections = 20;
        double seconds = 5;
    };
    struct Result {
        std::size_t answered = 0;
        std::size_t failed = 0;  ///< another status than 200, a connection that ended, no answer within 10 s
        double seconds = 0;
        std::vector<double> microseconds;  ///< of those answered, in order of size
    };

    explicit Load(Settings settings);
    Result run();

private:
    struct Connection {
        base::UniqueFd socket;
        bool isAsked = false;
        Clock::time_point due;
        std::string input;
    };

    bool connect(Connection& connection) const;
    void ask(Connection& connection, Clock::time_point due);
    void take(Connection& connection);
    void fail(Connection& connection);

    const Settings m_settings;
    const std::string m_request;
    std::vector<Connection> m_connections;
    Result m_result;
};
