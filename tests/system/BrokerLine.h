#pragma once

#include <atomic>
#include <list>
#include <string>
#include <thread>

#include "UniqueFd.h"

/// A line to a broker on this machine that a test may hold: a port at which a site reaches the broker, served
/// by a thread of its own. What is held is not lost, as on a line that is cut and healed before either end
/// has given up: it comes late.
class BrokerLine {
public:
    enum class EState {
        Whole,
        Cut,   ///< nothing comes through
        Half,  ///< nothing of the broker
        Mute   ///< nothing of the site
    };

    BrokerLine(int port, int brokerPort);
    ~BrokerLine();
    BrokerLine(const BrokerLine&) = delete;
    BrokerLine& operator=(const BrokerLine&) = delete;

    void set(EState state) { m_state = state; }

private:
    /// One direction of a connection.
    struct Way {
        std::string held;
        bool hasEnded = false;
    };
    struct Connection {
        base::UniqueFd site;
        base::UniqueFd broker;
        Way up;
        Way down;
    };

    void run();
    void accept();
    static void pass(int from, int to, Way& way, bool isHeld);

    const int m_brokerPort;
    base::UniqueFd m_listener;
    std::atomic<EState> m_state = EState::Whole;
    std::atomic<bool> m_isStopping = false;
    std::list<Connection> m_connections;
    std::thread m_thread;
};
