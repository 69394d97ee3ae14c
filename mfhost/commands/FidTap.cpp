#include "FidTap.h"

#include <chrono>

#include "FidWatch.h"

namespace {

[[gnu::tls_model("initial-exec")]] constinit thread_local unsigned int t_watched = 0;
/// Calls that are no FIDs: the outermost one is timed.
constinit thread_local unsigned int t_calls = 0;
constinit thread_local std::chrono::steady_clock::time_point t_callBegan{};

// Receiving threads, on which nobody watches, pass the tap for each FID. What is told stands apart from that,
// so that they have two variables to look at and nothing to save.
bool isAnyoneWatching() {
    return t_watched > 0 || FidWatch::ofThisThread();
}

}  // namespace

FidTap::WatchedThread::WatchedThread() {
    ++t_watched;
}

FidTap::WatchedThread::~WatchedThread() {
    --t_watched;
}

void FidTap::callBegins(const std::string& driverID, const char* operation) {
    if (t_calls++ == 0)
        t_callBegan = std::chrono::steady_clock::now();
    m_calls.callBegins(driverID, operation);
}

void FidTap::callReturned(const std::string& driverID, const char* operation, bool ok) {
    if (m_pObservation)
        m_pObservation->configured(driverID, operation, ok, std::chrono::steady_clock::now() - t_callBegan);
}

void FidTap::callEnded(const std::string& driverID, const char* operation) {
    t_calls -= t_calls > 0 ? 1 : 0;
    m_calls.callEnded(driverID, operation);
}

void FidTap::driverDeleted(const std::string& driverID) {
    m_calls.driverDeleted(driverID);
}

void FidTap::loadFailed(const std::string& path, const std::string& reason) {
    m_calls.loadFailed(path, reason);
}

void FidTap::fidBegins(const std::string& driverID, const std::string& fid,
                       const FIDParameterList& parameters) {
    if (isAnyoneWatching())
        return tellBegin(driverID, fid, parameters);
    if (m_pTrail)
        m_pTrail->fidBegins(driverID, fid, parameters);
}

void FidTap::tellBegin(const std::string& driverID, const std::string& fid,
                       const FIDParameterList& parameters) {
    if (m_pTrail)
        m_pTrail->fidBegins(driverID, fid, parameters);
    if (t_watched > 0)
        m_drivers.fidBegins(driverID, fid, parameters);
    if (FidWatch* const pWatch = FidWatch::ofThisThread())
        pWatch->fidBegins(driverID, fid);
}

void FidTap::fidEnded(const std::string& driverID, bool ok, const char* exception) {
    if (isAnyoneWatching())
        return tellEnd(driverID, ok, exception);
    if (m_pTrail)
        m_pTrail->fidEnded(ok, exception);
}

void FidTap::tellEnd(const std::string& driverID, bool ok, const char* exception) {
    if (m_pTrail)
        m_pTrail->fidEnded(ok, exception);
    if (t_watched > 0)
        m_drivers.fidEnded(driverID, ok, exception);
    if (FidWatch* const pWatch = FidWatch::ofThisThread())
        pWatch->fidEnded(ok, exception);
}

void FidTap::sent(const std::string& queue, std::uint32_t number, const unsigned char* data, int length,
                  bool ok) {
    if (m_pWire && m_pWire->isOn())
        m_pWire->sent(queue, data, length, ok);
    if (m_pTrail)
        m_pTrail->sent(queue, data, length, ok);
    if (FidWatch* const pWatch = FidWatch::ofThisThread())
        pWatch->sent(queue, number, data, length, ok);
}

void FidTap::received(const std::string& queue, std::uint32_t, const unsigned char* data, int length) {
    if (m_pWire && m_pWire->isOn())
        m_pWire->received(queue, data, length);
    if (m_pTrail)
        m_pTrail->received(queue, data, length);
}

void FidTap::waits(const std::string& queue) {
    if (m_pTrail)
        m_pTrail->waits(queue);
}

void FidTap::line(const std::string& output, int level, const std::string& text) {
    m_log.line(output, level, text);
    if (m_pObservation)
        m_pObservation->hostLine(output, level, text);
    if (m_pTrail)
        m_pTrail->logged(output, text);
    if (FidWatch* const pWatch = FidWatch::ofThisThread())
        pWatch->logged(output, text);
}
