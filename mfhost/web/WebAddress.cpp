#include "WebAddress.h"

#include <arpa/inet.h>

#include <array>
#include <charconv>

#include "Printable.h"

namespace {

constexpr const char* s_form = "[ADDRESS:]PORT, such as 8080, 0.0.0.0:8443 or [::1]:8080";

/// As the system writes it; empty for what is no address.
std::string numeric(const std::string& text) {
    for (const int family : {AF_INET, AF_INET6}) {
        in6_addr bytes{};
        std::array<char, INET6_ADDRSTRLEN> shown{};
        if (::inet_pton(family, text.c_str(), &bytes) == 1 &&
            ::inet_ntop(family, &bytes, shown.data(), shown.size()))
            return shown.data();
    }
    return {};
}

}  // namespace

bool WebAddress::read(const std::string& text, WebAddress& result, std::string& error) {
    const auto colon = text.rfind(':');
    const std::string digits = colon == std::string::npos ? text : text.substr(colon + 1);
    WebAddress read;
    if (colon != std::string::npos) {
        std::string name = text.substr(0, colon);
        const bool isBracketed = name.size() > 2 && name.front() == '[' && name.back() == ']';
        if (isBracketed)
            name = name.substr(1, name.size() - 2);
        read.address = name == "localhost" ? "127.0.0.1" : numeric(name);
        if (read.address.empty() || isBracketed != read.isIPv6()) {
            error = base::quoted(text) + " is not " + s_form + ": " + base::quoted(name) +
                    " is no numeric address";
            if (!isBracketed && read.isIPv6())
                error = base::quoted(text) + " is not " + s_form + ": an IPv6 address stands in brackets";
            return false;
        }
    }
    const char* pEnd = digits.data() + digits.size();
    const auto [pRead, fault] = std::from_chars(digits.data(), pEnd, read.port);
    if (digits.empty() || fault != std::errc() || pRead != pEnd) {
        error = base::quoted(text) + " is not " + s_form + ": the port is a number from 0 to 65535";
        return false;
    }
    result = read;
    return true;
}

bool WebAddress::isLoopback() const {
    return address == "::1" || address.starts_with("127.");
}
