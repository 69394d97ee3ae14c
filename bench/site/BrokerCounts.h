#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

/// What the broker counts of itself and tells every second or two below $SYS. A thread of its own listens,
/// until the end of the object.
class BrokerCounts {
public:
    struct Count {
        double plain = 0;      ///< messages that it has taken; mosquitto leaves out those to be retained
        double out = 0;        ///< messages that it has given out
        double dropped = 0;    ///< and not given to who had asked for them
        double retained = 0;   ///< messages that it keeps, its own among them
        double connected = 0;  ///< clients, this one among them
        std::int64_t at = 0;   ///< when it was told, in nanoseconds
    };

    static constexpr const char* s_user = "COUNTER";

    BrokerCounts(int port, const std::string& password);
    ~BrokerCounts();
    BrokerCounts(const BrokerCounts&) = delete;
    BrokerCounts& operator=(const BrokerCounts&) = delete;

    /// The next that is told whole. Throws when none is.
    Count next();

private:
    void listen(int port, const std::string& password);

    std::mutex m_mutex;
    Count m_last;
    std::atomic<bool> m_isStopping = false;
    std::thread m_thread;
};
