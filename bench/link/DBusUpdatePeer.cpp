#include "DBusUpdatePeer.h"

#include <poll.h>
#include <unistd.h>

#include <cstring>

#include "DBusMessagePtr.h"
#include "UpdateSeries.h"

namespace {

constexpr const char* g_path = "/panel";
constexpr const char* g_interface = "bench.Panel";
constexpr const char* g_changed = "Changed";
constexpr const char* g_event = "Event";
/// The library queues without a limit; beyond this it is made to write.
constexpr long g_maximumPending = 1 << 20;

DBusMessagePtr makeSignal(const Job& job, UpdateSeries& series, std::uint64_t number) {
    DBusMessagePtr pSignal(
        dbus_message_new_signal(g_path, g_interface, job.kind == Job::EKind::Events ? g_event : g_changed));
    const char* pName = series.name(number).c_str();
    if (job.isText()) {
        const char* pText = series.text(number).c_str();
        dbus_message_append_args(pSignal.get(), DBUS_TYPE_STRING, &pName, DBUS_TYPE_STRING, &pText,
                                 DBUS_TYPE_INVALID);
    } else {
        const dbus_int32_t value =
            job.kind == Job::EKind::Paced ? UpdateSeries::stamp() : static_cast<dbus_int32_t>(number);
        dbus_message_append_args(pSignal.get(), DBUS_TYPE_STRING, &pName, DBUS_TYPE_INT32, &value,
                                 DBUS_TYPE_INVALID);
    }
    return pSignal;
}

void take(DBusMessage* pSignal, IPanelState& target) {
    const bool isEvent = dbus_message_is_signal(pSignal, g_interface, g_event);
    if (!isEvent && !dbus_message_is_signal(pSignal, g_interface, g_changed))
        return;
    DBusMessageIter arguments;
    const char* pName = nullptr;
    dbus_message_iter_init(pSignal, &arguments);
    dbus_message_iter_get_basic(&arguments, &pName);
    const std::string id = std::string("D00.") + pName;
    dbus_message_iter_next(&arguments);
    if (dbus_message_iter_get_arg_type(&arguments) == DBUS_TYPE_INT32) {
        dbus_int32_t value = 0;
        dbus_message_iter_get_basic(&arguments, &value);
        target.setStateValueInt(id, value);
    } else {
        const char* pText = nullptr;
        dbus_message_iter_get_basic(&arguments, &pText);
        if (isEvent)
            target.triggerEvent(id, pText);
        else
            target.setStateValue(id, pText);
    }
}

}  // namespace

DBusUpdatePeer::DBusUpdatePeer(const std::string& directory, bool hasBus)
    : m_address("unix:path=" + directory + "/direct") {
    if (hasBus) {
        m_daemon.emplace(directory, 0);
        m_address = m_daemon->address();
    } else {
        unlink((directory + "/direct").c_str());
    }
}

std::vector<pid_t> DBusUpdatePeer::helpers() const {
    return m_daemon ? std::vector<pid_t>{m_daemon->pid()} : std::vector<pid_t>{};
}

DBusConnection* DBusUpdatePeer::connect() const {
    DBusCall call;
    DBusConnection* pConnection = dbus_connection_open_private(m_address.c_str(), call.error());
    call.check(pConnection != nullptr, "connection");
    dbus_connection_set_exit_on_disconnect(pConnection, FALSE);
    if (m_daemon)
        call.check(dbus_bus_register(pConnection, call.error()), "registration at the bus");
    return pConnection;
}

DBusConnection* DBusUpdatePeer::listen(const std::function<void()>& ready) const {
    DBusCall call;
    DBusServer* pServer = dbus_server_listen(m_address.c_str(), call.error());
    call.check(pServer != nullptr, "listening");
    DBusWatch* pWatch = nullptr;
    dbus_server_set_watch_functions(
        pServer,
        [](DBusWatch* pAdded, void* pPlace) -> dbus_bool_t {
            *static_cast<DBusWatch**>(pPlace) = pAdded;
            return TRUE;
        },
        [](DBusWatch*, void*) {}, [](DBusWatch*, void*) {}, static_cast<void*>(&pWatch), nullptr);
    DBusConnection* pConnection = nullptr;
    dbus_server_set_new_connection_function(
        pServer,
        [](DBusServer*, DBusConnection* pNew, void* pPlace) {
            *static_cast<DBusConnection**>(pPlace) = dbus_connection_ref(pNew);
        },
        static_cast<void*>(&pConnection), nullptr);
    ready();
    while (!pConnection) {
        pollfd fd{dbus_watch_get_unix_fd(pWatch), POLLIN, 0};
        poll(&fd, 1, -1);
        dbus_watch_handle(pWatch, DBUS_WATCH_READABLE);
    }
    return pConnection;
}

void DBusUpdatePeer::receive(PanelTarget& target, const std::function<void()>& ready,
                             const std::function<void()>& completed) {
    DBusConnection* pConnection = nullptr;
    if (m_daemon) {
        pConnection = connect();
        DBusCall call;
        dbus_bus_add_match(pConnection, "type='signal',interface='bench.Panel'", call.error());
        call.check(!dbus_error_is_set(call.error()), "match");
        ready();
    } else {
        pConnection = listen(ready);
    }
    for (;;) {
        if (!dbus_connection_read_write(pConnection, -1))
            throw std::runtime_error("the connection has ended");
        while (const DBusMessagePtr pSignal{dbus_connection_pop_message(pConnection)}) {
            take(pSignal.get(), target);
            if (target.isComplete())
                completed();
        }
    }
}

void DBusUpdatePeer::send(const NextJob& nextJob, BurstGate& gate) {
    DBusConnection* pConnection = connect();
    // Who has not been authenticated yet cannot send.
    while (!dbus_connection_get_is_authenticated(pConnection) &&
           dbus_connection_read_write(pConnection, 10)) {
    }
    for (;;) {
        const Job job = nextJob();
        UpdateSeries series(job);
        for (std::uint64_t number = 0; number < job.count; ++number) {
            if (job.kind == Job::EKind::Paced)
                UpdateSeries::pause();
            if (job.isInBursts)
                gate.pass(number);
            const DBusMessagePtr pSignal = makeSignal(job, series, number);
            if (!dbus_connection_send(pConnection, pSignal.get(), nullptr))
                throw std::runtime_error("no memory for a signal");
            if (job.kind == Job::EKind::Paced || (job.isInBursts && BurstGate::isBurstEnd(number)) ||
                dbus_connection_get_outgoing_size(pConnection) > g_maximumPending)
                dbus_connection_flush(pConnection);
        }
        dbus_connection_flush(pConnection);
    }
}

std::unique_ptr<UpdatePeer> DBusUpdatePeer::makeBus(const std::string& directory) {
    return std::make_unique<DBusUpdatePeer>(directory, true);
}

std::unique_ptr<UpdatePeer> DBusUpdatePeer::makeDirect(const std::string& directory) {
    return std::make_unique<DBusUpdatePeer>(directory, false);
}
