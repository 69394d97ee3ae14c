#pragma once

#include <dbus/dbus.h>
#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DBusDaemon.h"
#include "StartPeer.h"

/// Services of a message bus of its own, which starts each when its first call comes. All are called at once.
class DBusStartPeer : public StartPeer {
public:
    explicit DBusStartPeer(std::filesystem::path directory);

    double start(int drivers) override;
    double restart(int driver) override;

    /// One call after start(). The process that has answered, or 0 when there is no answer.
    pid_t ask(int driver) const;
    static std::string serviceName(int driver);
    /// Of the bus. After start().
    const std::string& address() const { return m_daemon->address(); }

private:
    struct Close {
        void operator()(DBusConnection* pConnection) const;
    };

    void writeServices(int drivers) const;
    void connect();
    dbus_uint32_t call(int driver) const;

    const std::filesystem::path m_directory;
    std::optional<DBusDaemon> m_daemon;
    std::unique_ptr<DBusConnection, Close> m_pConnection;
    std::vector<pid_t> m_processes;  ///< of each driver, as it has answered last
};
