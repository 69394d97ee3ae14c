#pragma once

#include <string>
#include <utility>

#include "UniqueFd.h"
#include "WebAddress.h"

/// The port at which the web panel is reached, and the files that its encryption needs. Made by main, opened
/// before the process enters a sandbox, which has adapters and files of its own.
class WebPort {
public:
    struct Settings {
        WebAddress address;
        std::string certificateFile;  ///< PEM, with its chain; empty: no TLS
        std::string keyFile;          ///< PEM
        std::string tokenFile;        ///< empty for none
    };

    /// Empty when clients can connect now; else why not, which leaves the host without a panel.
    std::string open(const Settings& settings);

    bool isOpen() const { return static_cast<bool>(m_listener); }
    /// With the port that the system chose, where it was to.
    const WebAddress& address() const { return m_address; }
    bool hasTls() const { return !m_certificate.empty(); }
    const std::string& certificate() const { return m_certificate; }
    const std::string& key() const { return m_key; }
    /// What the file of tokens holds.
    const std::string& tokens() const { return m_tokens; }
    /// "http://127.0.0.1:8080": where a browser of this machine finds it.
    std::string url() const;
    /// Where one of another machine does, as far as this one knows its own name.
    std::string urlElsewhere() const;
    /// Hands over the listening, non-blocking socket.
    base::UniqueFd takeListener() { return std::move(m_listener); }

private:
    std::string urlOf(const std::string& host) const;

    WebAddress m_address;
    std::string m_certificate;
    std::string m_key;
    std::string m_tokens;
    base::UniqueFd m_listener;
};
