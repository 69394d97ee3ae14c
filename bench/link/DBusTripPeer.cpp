#include "DBusTripPeer.h"

#include <unistd.h>

#include "DBusDaemon.h"
#include "DBusMessagePtr.h"

namespace {

constexpr const char* g_name = "bench.Driver";

}  // namespace

DBusTripPeer::DBusTripPeer(const std::string& directory) : m_directory(directory) {}

DBusConnection* DBusTripPeer::connect() const {
    DBusCall call;
    DBusConnection* pConnection =
        dbus_connection_open_private(("unix:path=" + m_directory + "/bus").c_str(), call.error());
    call.check(pConnection != nullptr, "connection");
    dbus_connection_set_exit_on_disconnect(pConnection, FALSE);
    call.check(dbus_bus_register(pConnection, call.error()), "registration at the bus");
    return pConnection;
}

void DBusTripPeer::relay(const std::function<void()>& ready) {
    // The bus stays on the processors of this process, and lives as long.
    const DBusDaemon daemon(m_directory, 0);
    ready();
    for (;;)
        pause();
}

void DBusTripPeer::answer(const std::function<void()>& ready) {
    DBusConnection* pConnection = connect();
    DBusCall call;
    dbus_bus_request_name(pConnection, g_name, 0, call.error());
    call.check(!dbus_error_is_set(call.error()), "name");
    ready();
    while (dbus_connection_read_write(pConnection, -1)) {
        while (const DBusMessagePtr pCall{dbus_connection_pop_message(pConnection)}) {
            if (dbus_message_get_type(pCall.get()) != DBUS_MESSAGE_TYPE_METHOD_CALL)
                continue;
            dbus_uint32_t number = 0;
            call.check(dbus_message_get_args(pCall.get(), call.error(), DBUS_TYPE_UINT32, &number,
                                             DBUS_TYPE_INVALID),
                       "arguments");
            const DBusMessagePtr pAnswer(dbus_message_new_method_return(pCall.get()));
            dbus_message_append_args(pAnswer.get(), DBUS_TYPE_UINT32, &number, DBUS_TYPE_INVALID);
            dbus_connection_send(pConnection, pAnswer.get(), nullptr);
            dbus_connection_flush(pConnection);
        }
    }
}

void DBusTripPeer::openAsking() {
    m_pAsking = connect();
}

void DBusTripPeer::ask(unsigned int number) {
    const DBusMessagePtr pCall(dbus_message_new_method_call(g_name, "/driver", "bench.Driver", "Ask"));
    const dbus_uint32_t sent = number;
    dbus_message_append_args(pCall.get(), DBUS_TYPE_UINT32, &sent, DBUS_TYPE_INVALID);
    DBusCall call;
    const DBusMessagePtr pAnswer(
        dbus_connection_send_with_reply_and_block(m_pAsking, pCall.get(), 10000, call.error()));
    call.check(pAnswer != nullptr, "call");
    dbus_uint32_t back = 0;
    call.check(dbus_message_get_args(pAnswer.get(), call.error(), DBUS_TYPE_UINT32, &back, DBUS_TYPE_INVALID),
               "answer");
    if (back != sent)
        throw std::runtime_error("another message came back");
}

std::unique_ptr<TripPeer> DBusTripPeer::make(const std::string& directory) {
    return std::make_unique<DBusTripPeer>(directory);
}
