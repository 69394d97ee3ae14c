#include "DBusCallPeer.h"

#include <stdexcept>

DBusCallPeer::DBusCallPeer(const std::filesystem::path& directory) : m_bus(directory) {
    m_bus.start(1);
    m_service = m_bus.ask(0);
}

std::vector<std::string> DBusCallPeer::program() const {
    return {"busctl",  "--address=" + m_bus.address(),
            "call",    DBusStartPeer::serviceName(0),
            "/driver", "bench.Driver",
            "Ask"};
}

bool DBusCallPeer::isAnswer(const std::string& printed) const {
    return printed == "u " + std::to_string(m_service) + "\n";
}

void DBusCallPeer::ask() {
    if (m_bus.ask(0) != m_service)
        throw std::runtime_error("another service has answered, or none");
}

std::unique_ptr<CallPeer> DBusCallPeer::make(const std::filesystem::path& directory) {
    std::filesystem::create_directories(directory);
    return std::make_unique<DBusCallPeer>(directory);
}
