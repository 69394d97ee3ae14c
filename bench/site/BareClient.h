#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

struct mosquitto;
typedef struct mqtt5__property mosquitto_property;

/// A client as one writes it with libmosquitto and MQTT 5 alone: QoS 1, nothing besides. One thread.
class BareClient {
public:
    struct Message {
        std::string topic;
        std::string payload;
        std::string responseTopic;
        std::string correlation;
    };
    using Handler = std::function<void(const Message& message)>;

    /// Waits until the broker has taken the connection; throws when it does not.
    BareClient(const std::string& user, const std::string& password, int port, Handler handler);
    ~BareClient();
    BareClient(const BareClient&) = delete;
    BareClient& operator=(const BareClient&) = delete;

    void subscribe(const std::string& topics);
    void publish(const Message& message, bool isRetained);
    /// Reads and writes what can be, and calls the handler; waits for so long at most. False when the
    /// connection is gone.
    bool loop(int milliseconds);

private:
    struct Release {
        void operator()(mosquitto* pHandle) const;
    };
    struct Callbacks;

    Handler m_handler;
    bool m_isConnected = false;
    std::unique_ptr<mosquitto, Release> m_pHandle;
};
