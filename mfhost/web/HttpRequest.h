#pragma once

#include <string>

/// A request as a connection has brought it.
struct HttpRequest {
    std::string method;
    std::string target;
    std::string contentType;
    std::string body;
    // What only the web port looks at; empty where the request names none.
    std::string host;
    std::string origin;
    std::string authorization;
    std::string cookie;
    std::string knownTag;  ///< of If-None-Match
    bool takesGzip = false;
    bool isWebSocket = false;  ///< asks for a WebSocket of the version that there is
    std::string webSocketKey;

    bool isKeptAlive = true;   ///< the connection goes on after its answer
    bool isVersion10 = false;  ///< of a client that speaks HTTP/1.0

    /// Whether it changes nothing: such requests may be answered side by side.
    bool isSafe() const { return method == "GET" || method == "HEAD"; }
};
