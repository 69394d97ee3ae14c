#include "BareClient.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>
#include <poll.h>

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "Patience.h"

struct BareClient::Callbacks {
    static void connected(mosquitto*, void* pSelf, int reason, int, const mosquitto_property*) {
        static_cast<BareClient*>(pSelf)->m_isConnected = reason == 0;
    }
    static void received(mosquitto*, void* pSelf, const mosquitto_message* pMessage,
                         const mosquitto_property* pProperties) {
        Message message{
            pMessage->topic,
            {static_cast<const char*>(pMessage->payload), static_cast<std::size_t>(pMessage->payloadlen)},
            {},
            {}};
        char* pTopic = nullptr;
        if (mosquitto_property_read_string(pProperties, MQTT_PROP_RESPONSE_TOPIC, &pTopic, false))
            message.responseTopic = pTopic;
        std::free(pTopic);
        void* pData = nullptr;
        std::uint16_t length = 0;
        if (mosquitto_property_read_binary(pProperties, MQTT_PROP_CORRELATION_DATA, &pData, &length, false))
            message.correlation.assign(static_cast<const char*>(pData), length);
        std::free(pData);
        static_cast<BareClient*>(pSelf)->m_handler(message);
    }
};

void BareClient::Release::operator()(mosquitto* pHandle) const {
    mosquitto_destroy(pHandle);
}

BareClient::BareClient(const std::string& user, const std::string& password, int port, Handler handler)
    : m_handler(std::move(handler)), m_pHandle(mosquitto_new(user.c_str(), true, this)) {
    mosquitto* const pHandle = m_pHandle.get();
    mosquitto_int_option(pHandle, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(pHandle, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_v5_callback_set(pHandle, &Callbacks::connected);
    mosquitto_message_v5_callback_set(pHandle, &Callbacks::received);
    mosquitto_username_pw_set(pHandle, user.c_str(), password.c_str());
    if (mosquitto_connect(pHandle, "127.0.0.1", port, 10) != MOSQ_ERR_SUCCESS)
        throw std::runtime_error(user + " cannot connect to the broker");
    waitUntil(user + "'s connection", [this] { return loop(5) && m_isConnected; });
}

BareClient::~BareClient() = default;

void BareClient::subscribe(const std::string& topics) {
    mosquitto_subscribe(m_pHandle.get(), nullptr, topics.c_str(), 1);
}

void BareClient::publish(const Message& message, bool isRetained) {
    mosquitto_property* pProperties = nullptr;
    if (!message.responseTopic.empty())
        mosquitto_property_add_string(&pProperties, MQTT_PROP_RESPONSE_TOPIC, message.responseTopic.c_str());
    if (!message.correlation.empty())
        mosquitto_property_add_binary(&pProperties, MQTT_PROP_CORRELATION_DATA, message.correlation.data(),
                                      static_cast<std::uint16_t>(message.correlation.size()));
    mosquitto_publish_v5(m_pHandle.get(), nullptr, message.topic.c_str(),
                         static_cast<int>(message.payload.size()), message.payload.data(), 1, isRetained,
                         pProperties);
    mosquitto_property_free_all(&pProperties);
}

/// mosquitto_loop() takes no descriptor beyond 1023.
bool BareClient::loop(int milliseconds) {
    mosquitto* const pHandle = m_pHandle.get();
    pollfd wait{mosquitto_socket(pHandle), POLLIN, 0};
    if (mosquitto_want_write(pHandle))
        wait.events |= POLLOUT;
    ::poll(&wait, 1, milliseconds);
    if ((wait.revents & POLLOUT) != 0 && mosquitto_loop_write(pHandle, 1) != MOSQ_ERR_SUCCESS)
        return false;
    if ((wait.revents & (POLLIN | POLLHUP | POLLERR)) != 0 &&
        mosquitto_loop_read(pHandle, 1) != MOSQ_ERR_SUCCESS)
        return false;
    return mosquitto_loop_misc(pHandle) == MOSQ_ERR_SUCCESS;
}
