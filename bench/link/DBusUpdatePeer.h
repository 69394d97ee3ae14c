#pragma once

#include <dbus/dbus.h>

#include <optional>

#include "DBusDaemon.h"
#include "UpdatePeer.h"

/// D-Bus signals, one for each update: over a message bus, or straight from process to process.
class DBusUpdatePeer : public UpdatePeer {
public:
    DBusUpdatePeer(const std::string& directory, bool hasBus);
    std::vector<pid_t> helpers() const override;
    void receive(PanelTarget& target, const std::function<void()>& ready,
                 const std::function<void()>& completed) override;
    void send(const NextJob& nextJob, BurstGate& gate) override;

    static std::unique_ptr<UpdatePeer> makeBus(const std::string& directory);
    static std::unique_ptr<UpdatePeer> makeDirect(const std::string& directory);

private:
    DBusConnection* connect() const;
    /// The connection of the sender, which comes when it comes.
    DBusConnection* listen(const std::function<void()>& ready) const;

    std::string m_address;
    std::optional<DBusDaemon> m_daemon;
};
