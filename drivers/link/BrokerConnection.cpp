#include "BrokerConnection.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string_view>

namespace {

constexpr int s_keepalive = 10;
/// From the first attempt until the broker has taken the connection.
constexpr std::chrono::seconds s_patience{10};
constexpr int s_packetsAtOnce = 100;
/// Of the reason codes.
constexpr int s_firstFailure = 128;
/// More messages than LinkCore has on their way, of FIDs as well.
constexpr int s_inFlight = 2048;

/// The library's own start, once for as long as the module is loaded.
struct Library {
    Library() { mosquitto_lib_init(); }
    ~Library() { mosquitto_lib_cleanup(); }
};

struct ReleaseProperties {
    void operator()(mosquitto_property* pProperties) const { mosquitto_property_free_all(&pProperties); }
};
using Properties = std::unique_ptr<mosquitto_property, ReleaseProperties>;

/// Each call of the library adds to the list, or leaves it as it is.
template <class Add>
bool add(Properties& properties, Add call) {
    mosquitto_property* pList = properties.release();
    const int result = call(&pList);
    properties.reset(pList);
    return result == MOSQ_ERR_SUCCESS;
}

std::string takeText(char*& pText) {
    std::string text = pText ? pText : "";
    std::free(pText);
    pText = nullptr;
    return text;
}

bool fill(Properties& properties, const LinkMessage& message) {
    bool isFine = true;
    if (message.payload.starts_with('{'))
        isFine &= add(properties, [](auto** ppList) {
            return mosquitto_property_add_string(ppList, MQTT_PROP_CONTENT_TYPE, "application/json");
        });
    if (!message.responseTopic.empty())
        isFine &= add(properties, [&](auto** ppList) {
            return mosquitto_property_add_string(ppList, MQTT_PROP_RESPONSE_TOPIC,
                                                 message.responseTopic.c_str());
        });
    if (!message.correlation.empty())
        isFine &= add(properties, [&](auto** ppList) {
            return mosquitto_property_add_binary(ppList, MQTT_PROP_CORRELATION_DATA,
                                                 message.correlation.data(),
                                                 static_cast<std::uint16_t>(message.correlation.size()));
        });
    if (message.expiry > 0)
        isFine &= add(properties, [&](auto** ppList) {
            return mosquitto_property_add_int32(ppList, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, message.expiry);
        });
    for (const auto& [name, value] : message.properties)
        isFine &= add(properties, [&, pName = name.c_str(), pValue = value.c_str()](auto** ppList) {
            return mosquitto_property_add_string_pair(ppList, MQTT_PROP_USER_PROPERTY, pName, pValue);
        });
    return isFine;
}

LinkMessage read(const mosquitto_message& received, const mosquitto_property* pProperties) {
    LinkMessage message;
    message.topic = received.topic;
    if (received.payloadlen > 0)
        message.payload.assign(static_cast<const char*>(received.payload),
                               static_cast<std::size_t>(received.payloadlen));
    message.qos = received.qos;
    message.isRetained = received.retain;
    char* pText = nullptr;
    if (mosquitto_property_read_string(pProperties, MQTT_PROP_RESPONSE_TOPIC, &pText, false))
        message.responseTopic = takeText(pText);
    void* pData = nullptr;
    std::uint16_t length = 0;
    if (mosquitto_property_read_binary(pProperties, MQTT_PROP_CORRELATION_DATA, &pData, &length, false)) {
        message.correlation.assign(static_cast<const char*>(pData), length);
        std::free(pData);
    }
    char* pName = nullptr;
    const mosquitto_property* pUsers =
        mosquitto_property_read_string_pair(pProperties, MQTT_PROP_USER_PROPERTY, &pName, &pText, false);
    while (pUsers) {
        std::string name = takeText(pName);
        message.properties.emplace_back(std::move(name), takeText(pText));
        pUsers = mosquitto_property_read_string_pair(pUsers, MQTT_PROP_USER_PROPERTY, &pName, &pText, true);
    }
    return message;
}

}  // namespace

void BrokerConnection::Release::operator()(mosquitto* pHandle) const {
    mosquitto_destroy(pHandle);
}

/// What the library calls. No exception may pass through it.
struct BrokerConnection::Callbacks {
    static void connected(mosquitto*, void* pSelf, int reason, int, const mosquitto_property*) {
        auto& self = *static_cast<BrokerConnection*>(pSelf);
        guarded(self, [&] {
            if (reason != 0) {
                self.fail(std::string("the broker refuses the connection: ") +
                          mosquitto_reason_string(reason));
                return;
            }
            self.m_isConnected = true;
            self.m_handlers.connected();
        });
    }
    static void disconnected(mosquitto*, void* pSelf, int reason, const mosquitto_property*) {
        auto& self = *static_cast<BrokerConnection*>(pSelf);
        guarded(self, [&] {
            if (reason == MQTT_RC_SESSION_TAKEN_OVER)
                self.fail("another host has connected under this site's name");
            else
                self.fail(std::string("the connection has ended: ") + (reason >= s_firstFailure
                                                                           ? mosquitto_reason_string(reason)
                                                                           : mosquitto_strerror(reason)));
        });
    }
    static void published(mosquitto*, void* pSelf, int number, int reason, const mosquitto_property*) {
        auto& self = *static_cast<BrokerConnection*>(pSelf);
        self.m_pending.erase(number);
        if (reason >= s_firstFailure && self.m_handlers.refused)
            guarded(self, [&] { self.m_handlers.refused(mosquitto_reason_string(reason)); });
    }
    static void logged(mosquitto*, void* pSelf, int, const char* pText) {
        auto& self = *static_cast<BrokerConnection*>(pSelf);
        // "OpenSSL Error[0]: error:0A000415:SSL routines::sslv3 alert certificate expired"
        guarded(self, [&] {
            const std::string_view text = pText;
            if (text.starts_with("OpenSSL Error"))
                self.m_tlsFault = text.substr(text.rfind(':') + 1);
        });
    }
    static void received(mosquitto*, void* pSelf, const mosquitto_message* pMessage,
                         const mosquitto_property* pProperties) {
        auto& self = *static_cast<BrokerConnection*>(pSelf);
        guarded(self, [&] { self.m_handlers.received(read(*pMessage, pProperties)); });
    }

private:
    template <class Work>
    static void guarded(BrokerConnection& self, Work work) {
        try {
            work();
        } catch (const std::exception& error) {
            self.fail(error.what());
        }
    }
};

BrokerConnection::BrokerConnection(const std::string& site, const LinkSettings::Broker& broker,
                                   const LinkMessage& will, Handlers handlers)
    : m_broker(broker), m_handlers(std::move(handlers)) {
    static const Library s_library;
    m_pHandle.reset(mosquitto_new(("mf-" + site).c_str(), true, this));
    if (!m_pHandle)
        throw std::bad_alloc();
    mosquitto* const pHandle = m_pHandle.get();
    mosquitto_int_option(pHandle, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(pHandle, MOSQ_OPT_SEND_MAXIMUM, s_inFlight);
    mosquitto_int_option(pHandle, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_connect_v5_callback_set(pHandle, &Callbacks::connected);
    mosquitto_disconnect_v5_callback_set(pHandle, &Callbacks::disconnected);
    mosquitto_publish_v5_callback_set(pHandle, &Callbacks::published);
    mosquitto_message_v5_callback_set(pHandle, &Callbacks::received);
    mosquitto_username_pw_set(pHandle, site.c_str(),
                              broker.password.empty() ? nullptr : broker.password.c_str());
    mosquitto_will_set_v5(pHandle, will.topic.c_str(), static_cast<int>(will.payload.size()),
                          will.payload.data(), will.qos, will.isRetained, nullptr);
}

BrokerConnection::~BrokerConnection() = default;

void BrokerConnection::fail(const std::string& what, int result) {
    fail(what + ": " + (result == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(result)));
}

void BrokerConnection::fail(const std::string& why) {
    if (m_fault.empty()) {
        const std::string certificate = certificateFault();
        m_fault = certificate.empty() ? why : brokerName() + ": " + certificate;
    }
    m_isConnected = false;
}

/// TLS has an alert for each fault of the certificate that the other end was shown.
std::string BrokerConnection::certificateFault() const {
    constexpr std::string_view alert = " alert ";
    const auto found = m_tlsFault.find(alert);
    if (found == std::string::npos)
        return {};
    const std::string what = m_tlsFault.substr(found + alert.size());
    if (what.find("certificate") == std::string::npos && what != "unknown ca")
        return {};
    return "the broker does not take this site's certificate: " + what;
}

void BrokerConnection::open() {
    m_deadline = std::chrono::steady_clock::now() + s_patience;
    if (m_broker.isSecure()) {
        mosquitto_log_callback_set(m_pHandle.get(), &Callbacks::logged);
        const auto file = [](const std::string& path) { return path.empty() ? nullptr : path.c_str(); };
        const int result = mosquitto_tls_set(m_pHandle.get(), m_broker.authorities.c_str(), nullptr,
                                             file(m_broker.certificate), file(m_broker.key), nullptr);
        if (result != MOSQ_ERR_SUCCESS)
            return fail("the certificates cannot be used", result);
    }
    m_pLookup = std::make_unique<NameLookup>(m_broker.host);
}

/// The library looks the name up once more, since the broker's certificate has to have it; a resolver that
/// has just answered does so again.
void BrokerConnection::connect() {
    const NameLookup::EState state = m_pLookup->state();
    if (state == NameLookup::EState::UnderWay) {
        if (std::chrono::steady_clock::now() > m_deadline)
            fail(brokerName() + ": the name is not resolved in time");
        return;
    }
    if (state == NameLookup::EState::Failed)
        return fail(brokerName() + ": " + m_pLookup->fault());
    m_pLookup.reset();
    const int result = mosquitto_connect_bind_async(m_pHandle.get(), m_broker.host.c_str(), m_broker.port,
                                                    s_keepalive, nullptr);
    if (result != MOSQ_ERR_SUCCESS)
        fail(brokerName(), result);
}

int BrokerConnection::fd() const {
    return mosquitto_socket(m_pHandle.get());
}

bool BrokerConnection::wantsWrite() const {
    return mosquitto_want_write(m_pHandle.get());
}

void BrokerConnection::step(bool isReadable, bool isWritable) {
    if (m_pLookup)
        return connect();
    int result = MOSQ_ERR_SUCCESS;
    errno = 0;
    if (isWritable)
        result = mosquitto_loop_write(m_pHandle.get(), s_packetsAtOnce);
    // What TLS has taken from the socket already makes that readable no more.
    const bool mayRead = isReadable || (m_broker.isSecure() && m_isConnected);
    for (int i = 0; mayRead && i < s_packetsAtOnce && result == MOSQ_ERR_SUCCESS && m_fault.empty(); ++i) {
        errno = 0;
        result = mosquitto_loop_read(m_pHandle.get(), 1);
        if (errno == EAGAIN)
            break;
    }
    if (result == MOSQ_ERR_SUCCESS && m_fault.empty())
        result = mosquitto_loop_misc(m_pHandle.get());
    if (result != MOSQ_ERR_SUCCESS)
        fail(brokerName(), result);
    if (!m_isConnected && std::chrono::steady_clock::now() > m_deadline)
        fail(brokerName() + " does not answer");
}

bool BrokerConnection::publish(const LinkMessage& message) {
    Properties properties;
    if (!m_isConnected || !fill(properties, message))
        return false;
    int number = 0;
    const int result = mosquitto_publish_v5(m_pHandle.get(), &number, message.topic.c_str(),
                                            static_cast<int>(message.payload.size()), message.payload.data(),
                                            message.qos, message.isRetained, properties.get());
    if (result != MOSQ_ERR_SUCCESS)
        return false;
    if (message.qos > 0)
        m_pending.insert(number);
    return true;
}

bool BrokerConnection::subscribe(const std::string& topics) {
    return m_isConnected && mosquitto_subscribe_v5(m_pHandle.get(), nullptr, topics.c_str(), 1,
                                                   MQTT_SUB_OPT_NO_LOCAL, nullptr) == MOSQ_ERR_SUCCESS;
}

void BrokerConnection::close() {
    mosquitto_disconnect_v5(m_pHandle.get(), 0, nullptr);
}
