#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>

#include "IBroker.h"
#include "LinkSettings.h"
#include "NameLookup.h"

struct mosquitto;

/// One connection to a broker, from the first attempt to its loss, over libmosquitto with MQTT 5: Clean
/// Start, session expiry 0, keepalive 10 s. A lost one is not used again. Owned by LinkSite and used under
/// its lock; its handlers are called from within step() alone.
class BrokerConnection : public IBroker {
public:
    struct Handlers {
        std::function<void()> connected;
        std::function<void(const LinkMessage& message)> received;
        /// The broker does not take a message of ours, for that reason.
        std::function<void(const std::string& reason)> refused = {};
    };

    /// The site is user name and client ID.
    BrokerConnection(const std::string& site, const LinkSettings::Broker& broker, const LinkMessage& will,
                     Handlers handlers);
    ~BrokerConnection() override;
    BrokerConnection(const BrokerConnection&) = delete;
    BrokerConnection& operator=(const BrokerConnection&) = delete;

    /// Begins to look the broker's name up; step() connects when it is known. Waits for neither.
    void open();
    /// Why there is no connection any more; empty while there may be.
    const std::string& fault() const { return m_fault; }

    /// For poll(): -1 for none, and whether it is to be written to.
    int fd() const;
    bool wantsWrite() const;
    /// Reads and writes what can be, without waiting.
    void step(bool isReadable, bool isWritable);

    bool publish(const LinkMessage& message) override;
    bool subscribe(const std::string& topics) override;
    std::size_t pending() const override { return m_pending.size(); }

    /// Says goodbye.
    void close();

private:
    struct Release {
        void operator()(mosquitto* pHandle) const;
    };
    struct Callbacks;
    friend struct Callbacks;

    void connect();
    std::string brokerName() const { return m_broker.host + " port " + std::to_string(m_broker.port); }
    void fail(const std::string& what, int result);
    void fail(const std::string& why);
    std::string certificateFault() const;

    const LinkSettings::Broker m_broker;
    const Handlers m_handlers;
    std::unique_ptr<mosquitto, Release> m_pHandle;
    std::unique_ptr<NameLookup> m_pLookup;  ///< until the name is known
    std::unordered_set<int> m_pending;      ///< message IDs that the broker has not confirmed
    bool m_isConnected = false;
    std::chrono::steady_clock::time_point m_deadline{};
    std::string m_fault;
    std::string m_tlsFault;  ///< what the library has logged of it last
};
