#pragma once

#include <string>

#include "ApiClient.h"
#include "Screen.h"

/// Asks a host again and again for a command that goes on when the host is started anew: says in a line on
/// standard error that it is gone, and that it is back. Main thread.
class HostReturn {
public:
    HostReturn(ApiClient& client, const Screen& screen) : m_client(client), m_screen(screen) {}

    /// The host's answer. A host that was there before and is gone is waited for, without end, since that is
    /// what the command is for; one that was never there is a ControlError.
    ApiClient::Reply ask(const std::string& target);
    /// Whether the last answer came from another instance than the one before it: what was known of that one
    /// holds no more.
    bool isAnother() const { return m_isAnother; }

    /// Says why it is gone, and waits until it answers.
    void awaitHost(const std::string& reason);

private:
    ApiClient& m_client;
    const Screen& m_screen;
    std::string m_instance;
    unsigned m_connections = 0;
    bool m_isAnother = false;
};
