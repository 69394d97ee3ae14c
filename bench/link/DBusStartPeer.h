#pragma once

#include <dbus/dbus.h>
#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "DBusDaemon.h"
#include "StartPeer.h"

/// Services of a message bus of its own, which starts each when its first call comes. All are called at once.
class DBusStartPeer : public StartPeer {
public:
    explicit DBusStartPeer(std::filesystem::path directory);

    double start(int drivers) override;
    double restart(int driver) override;

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
