#pragma once

#include <string>

#include "DriverTable.h"
#include "FidTrail.h"
#include "Observation.h"
#include "WireTap.h"
#include "sal/LogManager.h"
#include "sal/MessageQueue.h"
#include "sal/Module.h"

/// Where the FIDs of this process are seen on their way to drivers: tells the FidWatch of the thread that
/// sends one, and the table of drivers of calls that may not come back. What a thread logs meanwhile belongs
/// to that. Passes on what the observers of the drivers' other calls and of the log are told. Owned by Host;
/// told by libsal on any thread, most of which it only asks whether they watch.
class FidTap : public sal::MessageQueue::Observer,
               public sal::Module::Observer,
               public sal::LogManager::Observer {
public:
    FidTap(DriverTable& drivers, sal::Module::Observer& calls, sal::LogManager::Observer& log)
        : m_drivers(drivers), m_calls(calls), m_log(log) {}

    /// Where what it is told is recorded, before other threads send; none by default.
    void setStream(Observation* pObservation, FidTrail* pTrail, WireTap* pWire = nullptr) {
        m_pObservation = pObservation;
        m_pTrail = pTrail;
        m_pWire = pWire;
    }

    /// As long as one lives on a thread, FIDs that come to drivers of this process on that thread are calls
    /// in the table of drivers.
    class WatchedThread {
    public:
        WatchedThread();
        ~WatchedThread();
        WatchedThread(const WatchedThread&) = delete;
        WatchedThread& operator=(const WatchedThread&) = delete;
    };

    void callBegins(const std::string& driverID, const char* operation) override;
    void callEnded(const std::string& driverID, const char* operation) override;
    void callReturned(const std::string& driverID, const char* operation, bool ok) override;
    void driverDeleted(const std::string& driverID) override;
    void loadFailed(const std::string& path, const std::string& reason) override;
    void fidBegins(const std::string& driverID, const std::string& fid,
                   const FIDParameterList& parameters) override;
    void fidEnded(const std::string& driverID, bool ok, const char* exception) override;

    void sent(const std::string& queue, std::uint32_t number, const unsigned char* data, int length,
              bool ok) override;
    void received(const std::string& queue, std::uint32_t number, const unsigned char* data,
                  int length) override;
    void waits(const std::string& queue) override;

    void line(const std::string& output, int level, const std::string& text) override;

private:
    [[gnu::noinline]] void tellBegin(const std::string& driverID, const std::string& fid,
                                     const FIDParameterList& parameters);
    [[gnu::noinline]] void tellEnd(const std::string& driverID, bool ok, const char* exception);

    DriverTable& m_drivers;
    sal::Module::Observer& m_calls;
    sal::LogManager::Observer& m_log;
    Observation* m_pObservation = nullptr;
    FidTrail* m_pTrail = nullptr;
    WireTap* m_pWire = nullptr;
};
