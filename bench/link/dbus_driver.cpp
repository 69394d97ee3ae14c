// A driver process as D-Bus activation has it: started by the bus for its first call, it answers each call
// with its process number. usage: bench_dbus_driver NAME

#include <dbus/dbus.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    DBusError error = DBUS_ERROR_INIT;
    DBusConnection* pConnection = dbus_bus_get(DBUS_BUS_STARTER, &error);
    if (!pConnection || dbus_bus_request_name(pConnection, argv[1], 0, &error) < 0) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.message);
        return 1;
    }
    // The first call may have come with the name. The end of the bus ends the process.
    do {
        while (DBusMessage* pCall = dbus_connection_pop_message(pConnection)) {
            if (dbus_message_get_type(pCall) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
                const auto process = static_cast<dbus_uint32_t>(getpid());
                DBusMessage* pAnswer = dbus_message_new_method_return(pCall);
                dbus_message_append_args(pAnswer, DBUS_TYPE_UINT32, &process, DBUS_TYPE_INVALID);
                dbus_connection_send(pConnection, pAnswer, nullptr);
                dbus_connection_flush(pConnection);
                dbus_message_unref(pAnswer);
            }
            dbus_message_unref(pCall);
        }
    } while (dbus_connection_read_write(pConnection, -1));
    return 0;
}
