#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ApiCall.h"
#include "HttpLimits.h"
#include "ILiveSource.h"
#include "PeerRoles.h"
#include "SessionList.h"
#include "UniqueFd.h"
#include "WebPort.h"
#include "WebSessions.h"

/// Serves the control socket and, where there is one, the web port: takes connections, knows who is at their
/// other ends, reads requests and writes answers, on one thread, "api", which never waits for a client, a
/// driver or the module. Owned by Host,
/// whose threads start and stop it.
class ApiServer {
public:
    using Session = SessionList::Session;
    /// Called on the API thread, and returns at once. The answer is given exactly once: at once, or later on
    /// any thread, and also when the server is gone.
    using Handler = std::function<void(const ApiCall& call, std::function<void(ApiAnswer)> answer)>;

    struct Settings {
        PeerRoles::Settings roles;
        HttpLimits limits;
        /// The number of the next connection; without it they are counted from 1 on.
        std::function<std::uint64_t()> sessionNumber = {};
    };

    /// The handler is called from start() until stop() has returned.
    ApiServer(Settings settings, Handler handler);
    ~ApiServer();  ///< stops
    ApiServer(const ApiServer&) = delete;
    ApiServer& operator=(const ApiServer&) = delete;

    /// What the web port is served with; all of it lives as long as the server.
    struct Web {
        WebPort& port;
        WebSessions& sessions;
        ILiveSource& live;
        std::string workplace;  ///< the workplace file
        /// Told on this server's thread of each page of a session that opens, and of its end.
        std::function<void(std::uint64_t session, bool isThere)> pageFollower = [](std::uint64_t, bool) {};
        /// Told there of a session that is opened, or ended by itself, as who has done what.
        std::function<void(const ApiCaller& caller, const std::string& what)> recorder =
            [](const ApiCaller&, const std::string&) {};
    };
    /// Serves the open port from start() on. Before that; empty, or why it cannot be served.
    std::string addWeb(const Web& web);

    /// Takes over the listening, non-blocking socket; without one, nobody but the web port is served. Once;
    /// throws where no thread can be had.
    void start(base::UniqueFd listener);

    /// Takes no further connection and no further request; what waits for an answer is told that the host
    /// stops. Returns after two seconds at the latest, unless the handler itself does not return.
    void stop();

    /// Those that have a role. Any thread.
    std::vector<Session> sessions() const;

private:
    class Thread;

    std::unique_ptr<Thread> m_pThread;
};
