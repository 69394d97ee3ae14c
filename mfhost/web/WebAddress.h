#pragma once

#include <cstdint>
#include <string>

/// Where the web panel listens. Any thread.
struct WebAddress {
    std::string address = "127.0.0.1";  ///< numeric, without the brackets of IPv6
    std::uint16_t port = 0;             ///< 0: the system chooses one

    /// "[ADDRESS:]PORT": 8080, 0.0.0.0:8443, [::1]:8080, localhost:8080. False with the text in error, which
    /// says what would be right.
    static bool read(const std::string& text, WebAddress& result, std::string& error);

    bool isIPv6() const { return address.find(':') != std::string::npos; }
    /// Only this machine itself reaches it.
    bool isLoopback() const;
    /// All addresses of the machine.
    bool isAny() const { return address == "0.0.0.0" || address == "::"; }
    /// As an address of the web has it: "[::1]".
    std::string host() const { return isIPv6() ? "[" + address + "]" : address; }
    /// "127.0.0.1:8080".
    std::string text() const { return host() + ":" + std::to_string(port); }
};
