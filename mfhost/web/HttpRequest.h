#pragma once

#include <string>

/// A request as a connection has brought it.
struct HttpRequest {
    std::string method;
    std::string target;
    std::string contentType;
    std::string body;
    bool isKeptAlive = true;   ///< the connection goes on after its answer
    bool isVersion10 = false;  ///< of a client that speaks HTTP/1.0

    /// Whether it changes nothing: such requests may be answered side by side.
    bool isSafe() const { return method == "GET" || method == "HEAD"; }
};
