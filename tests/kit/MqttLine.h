#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "UniqueFd.h"

/// A line to a broker on this machine, which connects at a port of its own: whole and fast, until a test
/// makes it bad. It passes whole MQTT packets on. A thread of its own; its operations are for one other
/// thread.
class MqttLine {
public:
    enum class EWay { ToBroker, FromBroker };
    enum class EState {
        Whole,
        Still,  ///< nothing is read any more: what is sent waits
        Lost    ///< what is sent is gone
    };
    /// What goes on in a packet's place, on the line's thread.
    using Change = std::function<std::vector<std::string>(const std::string& packet)>;

    /// Both on 127.0.0.1.
    MqttLine(int port, int brokerPort);
    ~MqttLine();
    MqttLine(const MqttLine&) = delete;
    MqttLine& operator=(const MqttLine&) = delete;

    /// Connections end, and nobody can connect.
    void cut();
    void heal();
    void set(EWay way, EState state);
    /// Of each packet from now on.
    void delay(std::chrono::milliseconds time);
    void change(EWay way, Change change);

    static bool isPublish(const std::string& packet) { return (packet.at(0) & 0xf0) == 0x30; }

private:
    using Clock = std::chrono::steady_clock;

    struct Packet {
        Clock::time_point due;
        std::string bytes;
    };
    /// One direction of one connection.
    struct Flow {
        std::string read;  ///< no whole packet yet
        std::deque<Packet> waiting;
        std::string unsent;
        bool hasEnded = false;
    };
    struct Connection {
        base::UniqueFd client;
        base::UniqueFd broker;
        Flow flows[2];
    };

    void run();
    void listen();
    void accept();
    bool serve(Connection& connection);
    void read(int fd, Flow& flow, int way);
    static bool write(int fd, Flow& flow);

    const int m_port;
    const int m_brokerPort;
    std::mutex m_mutex;
    EState m_states[2] = {EState::Whole, EState::Whole};
    Change m_changes[2];
    std::chrono::milliseconds m_delay{0};
    base::UniqueFd m_listener;
    std::list<Connection> m_connections;
    std::atomic<bool> m_isStopping = false;
    std::thread m_thread;
};
