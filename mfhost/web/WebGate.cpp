#include "WebGate.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "ApiFault.h"
#include "Printable.h"

namespace {

using ECode = ApiFault::ECode;

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// "localhost" of "localhost:8080", "::1" of "[::1]:8080"; empty for what is no name with a port.
std::string nameOf(const std::string& host) {
    const bool isBracketed = host.starts_with('[');
    const auto end = std::min(host.find(isBracketed ? ']' : ':'), host.size());
    const std::string rest = host.substr(std::min(isBracketed ? end + 1 : end, host.size()));
    const bool isOpen = isBracketed && end == host.size();
    if (isOpen || (!rest.empty() && rest[0] != ':') || rest.find_first_not_of("0123456789", 1) != rest.npos)
        return {};
    std::string name = lower(isBracketed ? host.substr(1, end - 1) : host.substr(0, end));
    if (!isBracketed && name.ends_with('.'))
        name.pop_back();
    return name;
}

std::string withoutBlanks(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

}  // namespace

std::optional<ApiAnswer> WebGate::refusal(const HttpRequest& request, const Connection& connection) const {
    if (!isOwnName(nameOf(request.host), connection))
        return ApiFault(ECode::HostUnknown,
                        request.host.empty()
                            ? "the request names no host"
                            : "this is not " + base::quoted(request.host) + "; the panel is reached as " +
                                  (connection.isLoopback ? "localhost" : connection.localAddress))
            .answer();
    const std::string own = (m_settings.hasTls ? "https://" : "http://") + lower(request.host);
    if (!request.origin.empty() && lower(request.origin) != own)
        return ApiFault(ECode::NotAllowed, "pages of " + base::quoted(request.origin) + " may not ask here")
            .answer();
    return std::nullopt;
}

bool WebGate::isOwnName(const std::string& name, const Connection& connection) const {
    if (name.empty())
        return false;
    if (connection.isLoopback && (name == "localhost" || name == "127.0.0.1" || name == "::1"))
        return true;
    return name == connection.localAddress ||
           std::find(m_settings.names.begin(), m_settings.names.end(), name) != m_settings.names.end() ||
           (m_settings.isCertified && m_settings.isCertified(name));
}

std::string WebGate::tokenOf(const HttpRequest& request, const Connection& connection) const {
    static constexpr std::string_view s_scheme = "bearer ";
    if (lower(request.authorization.substr(0, s_scheme.size())) == s_scheme)
        return withoutBlanks(request.authorization.substr(s_scheme.size()));
    // Cookies know no ports: on the machine itself, where others have ports too, none counts. A browser tells
    // where a request comes from that changes something, or that opens a channel.
    const bool isOfPage = !request.origin.empty() || (request.isSafe() && !request.isWebSocket);
    if (connection.isLoopback || !isOfPage)
        return {};
    for (std::size_t at = 0; at < request.cookie.size();) {
        const std::size_t end = std::min(request.cookie.find(';', at), request.cookie.size());
        const std::string pair = withoutBlanks(request.cookie.substr(at, end - at));
        if (pair.starts_with(m_settings.cookie + "="))
            return pair.substr(m_settings.cookie.size() + 1);
        at = end + 1;
    }
    return {};
}

std::string WebGate::cookieWith(const std::string& token, long seconds) const {
    // The prefix of the name has browsers insist on the rest.
    return m_settings.cookie + "=" + token + "; Path=/; Max-Age=" + std::to_string(seconds) +
           "; HttpOnly; SameSite=Strict" + (m_settings.hasTls ? "; Secure" : "");
}

std::string WebGate::cookieName(const std::string& workplace, bool hasTls) {
    std::string name = std::filesystem::path(workplace).stem().string();
    std::replace_if(
        name.begin(), name.end(),
        [](unsigned char c) { return c > 127 || (!std::isalnum(c) && c != '-' && c != '_'); }, '_');
    return (hasTls ? "__Host-mfhost-" : "mfhost-") + (name.empty() ? "panel" : name);
}
