#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

struct LinkMessage;

/// Anybody at a broker on this machine: says and hears what a test wants. One thread.
class BrokerClient {
public:
    BrokerClient(const std::string& user, const std::string& password, int port = 1883);
    ~BrokerClient();
    BrokerClient(const BrokerClient&) = delete;
    BrokerClient& operator=(const BrokerClient&) = delete;

    /// False where the broker does not take the connection before the hang guard.
    bool connect();
    bool subscribe(const std::string& topics);
    /// True when the broker has confirmed it, which it also does for what nobody may say.
    bool publish(const LinkMessage& message);
    /// Serves the connection until then; false when it does not come before the hang guard.
    bool until(const std::function<bool()>& condition);

    /// All that has come, oldest first.
    const std::vector<LinkMessage>& received() const { return m_received; }

private:
    class Connection;

    void begin();

    const std::string m_user;
    const std::string m_password;
    const int m_port;
    std::unique_ptr<Connection> m_pConnection;
    std::vector<LinkMessage> m_received;
};
