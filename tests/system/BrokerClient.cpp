#include "BrokerClient.h"

#include <poll.h>

#include "BrokerConnection.h"
#include "HangGuard.h"

class BrokerClient::Connection : public BrokerConnection {
public:
    using BrokerConnection::BrokerConnection;

    bool isConnected = false;
};

BrokerClient::BrokerClient(const std::string& user, const std::string& password, int port)
    : m_user(user), m_password(password), m_port(port) {}

BrokerClient::~BrokerClient() = default;

void BrokerClient::begin() {
    LinkSettings::Broker broker;
    broker.host = "127.0.0.1";
    broker.port = m_port;
    broker.password = m_password;
    const LinkMessage will{.topic = "gone/" + m_user, .payload = "{}"};
    m_pConnection = std::make_unique<Connection>(
        m_user, broker, will,
        BrokerConnection::Handlers{
            .connected = [this] { m_pConnection->isConnected = true; },
            .received = [this](const LinkMessage& message) { m_received.push_back(message); }});
    m_pConnection->open();
}

bool BrokerClient::connect() {
    begin();
    return until([this] {
        // A broker that has just been started does not listen yet.
        if (!m_pConnection->fault().empty())
            begin();
        return m_pConnection->isConnected;
    });
}

bool BrokerClient::subscribe(const std::string& topics) {
    return m_pConnection->subscribe(topics);
}

bool BrokerClient::publish(const LinkMessage& message) {
    return m_pConnection->publish(message) && until([this] { return m_pConnection->pending() == 0; });
}

bool BrokerClient::until(const std::function<bool()>& condition) {
    return eventually([&] {
        pollfd wait{m_pConnection->fd(), POLLIN, 0};
        if (m_pConnection->wantsWrite())
            wait.events |= POLLOUT;
        ::poll(&wait, 1, 5);
        if (m_pConnection->fault().empty())
            m_pConnection->step((wait.revents & (POLLIN | POLLHUP | POLLERR)) != 0,
                                (wait.revents & (POLLOUT | POLLERR)) != 0);
        return condition();
    });
}
