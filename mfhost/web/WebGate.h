#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ApiCall.h"
#include "HttpRequest.h"
#include "WebSessions.h"

/// Whether a request at the web port may be answered, and in whose name: it must be for a name that the port
/// has, so that no page of another site gets here by a name of its own, must not come from another page, and
/// needs a session. Owned by WebListener; API thread.
class WebGate {
public:
    struct Settings {
        bool hasTls = false;
        /// Beside the addresses that connections are made to; lower case.
        std::vector<std::string> names;
        /// Whether the certificate is for that name.
        std::function<bool(const std::string& name)> isCertified;
        std::string cookie;  ///< its name
    };
    /// The connection that the request came by.
    struct Connection {
        std::string localAddress;  ///< "192.0.2.10", "::1"
        std::string remoteAddress;
        bool isLoopback = false;  ///< of this machine only
    };

    explicit WebGate(Settings settings) : m_settings(std::move(settings)) {}

    /// What it is answered instead, if there is something wrong with where it comes from.
    std::optional<ApiAnswer> refusal(const HttpRequest& request, const Connection& connection) const;
    /// Empty where the request bears none. That of a cookie counts for a page of the port's own only.
    std::string tokenOf(const HttpRequest& request, const Connection& connection) const;

    /// For Set-Cookie: keeps the token for so many seconds; 0 forgets it.
    std::string cookieWith(const std::string& token, long seconds) const;
    /// A name for a workplace's cookie: one browser may know several workplaces of one machine.
    static std::string cookieName(const std::string& workplace, bool hasTls);

private:
    bool isOwnName(const std::string& name, const Connection& connection) const;

    const Settings m_settings;
};
