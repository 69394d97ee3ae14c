#include "DBusStartPeer.h"

#include <signal.h>

#include <fstream>
#include <map>
#include <stdexcept>
#include <string>

#include "DBusMessagePtr.h"
#include "Files.h"

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

/// The process that an answer comes from; throws what the bus says when it is none.
pid_t processIn(DBusMessage* pAnswer) {
    dbus_uint32_t process = 0;
    DBusCall call;
    call.check(!dbus_set_error_from_message(call.error(), pAnswer), "start");
    call.check(dbus_message_get_args(pAnswer, call.error(), DBUS_TYPE_UINT32, &process, DBUS_TYPE_INVALID),
               "answer");
    return static_cast<pid_t>(process);
}

}  // namespace

void DBusStartPeer::Close::operator()(DBusConnection* pConnection) const {
    dbus_connection_close(pConnection);
    dbus_connection_unref(pConnection);
}

DBusStartPeer::DBusStartPeer(fs::path directory) : m_directory(std::move(directory)) {}

std::string DBusStartPeer::serviceName(int driver) {
    return "bench.D" + std::to_string(driver);
}

double DBusStartPeer::start(int drivers) {
    writeServices(drivers);
    const std::int64_t begin = UpdateSeries::now();
    m_daemon.emplace(m_directory.string(), 0, (m_directory / "services").string());
    connect();
    m_processes.assign(static_cast<std::size_t>(drivers), 0);
    std::map<dbus_uint32_t, int> calls;
    for (int driver = 0; driver < drivers; ++driver)
        calls[call(driver)] = driver;
    const auto end = Clock::now() + s_patience;
    while (!calls.empty()) {
        if (Clock::now() > end || !dbus_connection_read_write(m_pConnection.get(), 1000))
            throw std::runtime_error(std::to_string(calls.size()) + " services do not answer");
        while (const DBusMessagePtr pMessage{dbus_connection_pop_message(m_pConnection.get())}) {
            const auto found = calls.find(dbus_message_get_reply_serial(pMessage.get()));
            if (found == calls.end())
                continue;
            m_processes[static_cast<std::size_t>(found->second)] = processIn(pMessage.get());
            calls.erase(found);
        }
    }
    return millisecondsSince(begin);
}

double DBusStartPeer::restart(int driver) {
    pid_t& process = m_processes[static_cast<std::size_t>(driver)];
    const pid_t former = process;
    const std::int64_t begin = UpdateSeries::now();
    ::kill(former, SIGKILL);
    // A call that the dead process still got fails as soon as the bus knows of its end.
    const auto end = Clock::now() + s_patience;
    while (Clock::now() < end) {
        const pid_t answering = ask(driver);
        if (answering == 0 || answering == former)
            continue;
        process = answering;
        return millisecondsSince(begin);
    }
    throw std::runtime_error(serviceName(driver) + ": is not started again");
}

pid_t DBusStartPeer::ask(int driver) const {
    const DBusMessagePtr pCall(
        dbus_message_new_method_call(serviceName(driver).c_str(), "/driver", "bench.Driver", "Ask"));
    const DBusMessagePtr pAnswer(
        dbus_connection_send_with_reply_and_block(m_pConnection.get(), pCall.get(), 10000, nullptr));
    return pAnswer ? processIn(pAnswer.get()) : 0;
}

void DBusStartPeer::writeServices(int drivers) const {
    fs::create_directories(m_directory / "services");
    for (int driver = 0; driver < drivers; ++driver) {
        const std::string name = serviceName(driver);
        std::ofstream(m_directory / "services" / (name + ".service"))
            << "[D-BUS Service]\nName=" << name << "\nExec=" << builtFile("bin/bench_dbus_driver").string()
            << " " << name << "\n";
    }
}

void DBusStartPeer::connect() {
    DBusCall call;
    m_pConnection.reset(dbus_connection_open_private(m_daemon->address().c_str(), call.error()));
    call.check(m_pConnection != nullptr, "connection");
    dbus_connection_set_exit_on_disconnect(m_pConnection.get(), FALSE);
    call.check(dbus_bus_register(m_pConnection.get(), call.error()), "registration at the bus");
}

dbus_uint32_t DBusStartPeer::call(int driver) const {
    const DBusMessagePtr pCall(
        dbus_message_new_method_call(serviceName(driver).c_str(), "/driver", "bench.Driver", "Ask"));
    dbus_uint32_t serial = 0;
    if (!dbus_connection_send(m_pConnection.get(), pCall.get(), &serial))
        throw std::runtime_error("the bus takes no calls");
    dbus_connection_flush(m_pConnection.get());
    return serial;
}
