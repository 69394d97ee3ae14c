#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CallPeer.h"
#include "DBusStartPeer.h"

/// busctl, or a connection to the bus, calls a method of a service. The bus is one of its own; the service
/// runs before the first call.
class DBusCallPeer : public CallPeer {
public:
    explicit DBusCallPeer(const std::filesystem::path& directory);

    std::vector<std::string> program() const override;
    bool isAnswer(const std::string& printed) const override;
    void open() override {}
    void ask() override;

    static std::unique_ptr<CallPeer> make(const std::filesystem::path& directory);

private:
    DBusStartPeer m_bus;
    pid_t m_service = 0;
};
