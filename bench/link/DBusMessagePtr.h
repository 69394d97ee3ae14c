#pragma once

#include <dbus/dbus.h>

#include <memory>
#include <stdexcept>
#include <string>

struct DBusUnref {
    void operator()(DBusMessage* pMessage) const { dbus_message_unref(pMessage); }
};
using DBusMessagePtr = std::unique_ptr<DBusMessage, DBusUnref>;

/// Throws what the library says when it has failed.
class DBusCall {
public:
    DBusCall() { dbus_error_init(&m_error); }
    ~DBusCall() { dbus_error_free(&m_error); }
    DBusCall(const DBusCall&) = delete;
    DBusCall& operator=(const DBusCall&) = delete;

    DBusError* error() { return &m_error; }
    void check(bool succeeded, const char* what) const {
        if (!succeeded)
            throw std::runtime_error(std::string(what) + ": " +
                                     (m_error.message ? m_error.message : "failed"));
    }

private:
    DBusError m_error;
};
