#pragma once

#include <dbus/dbus.h>

#include "TripPeer.h"

/// D-Bus method calls over a message bus, which is what passes them on.
class DBusTripPeer : public TripPeer {
public:
    explicit DBusTripPeer(const std::string& directory);
    void relay(const std::function<void()>& ready) override;
    void answer(const std::function<void()>& ready) override;
    void openAsking() override;
    void ask(unsigned int number) override;

    static std::unique_ptr<TripPeer> make(const std::string& directory);

private:
    DBusConnection* connect() const;

    std::string m_directory;
    DBusConnection* m_pAsking = nullptr;
};
