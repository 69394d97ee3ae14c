#include "FidTap.h"

#include "FidWatch.h"

namespace {

thread_local unsigned int t_watched = 0;

}  // namespace

FidTap::WatchedThread::WatchedThread() {
    ++t_watched;
}

FidTap::WatchedThread::~WatchedThread() {
    --t_watched;
}

void FidTap::callBegins(const std::string& driverID, const char* operation) {
    m_calls.callBegins(driverID, operation);
}

void FidTap::callEnded(const std::string& driverID, const char* operation) {
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
    if (t_watched > 0)
        m_drivers.fidBegins(driverID, fid, parameters);
    if (FidWatch* const pWatch = FidWatch::ofThisThread())
        pWatch->fidBegins(driverID, fid);
}

void FidTap::fidEnded(const std::string& driverID, bool ok, const char* exception) {
    if (t_watched > 0)
        m_drivers.fidEnded(driverID, ok, exception);
    if (FidWatch* const pWatch = FidWatch::ofThisThread())
        pWatch->fidEnded(ok, exception);
}

void FidTap::sent(const std::string& queue, std::uint32_t number, const unsigned char* data, int length,
                  bool ok) {
    if (FidWatch* const pWatch = FidWatch::ofThisThread())
        pWatch->sent(queue, number, data, length, ok);
}

void FidTap::line(const std::string& output, int level, const std::string& text) {
    m_log.line(output, level, text);
    if (FidWatch* const pWatch = FidWatch::ofThisThread())
        pWatch->logged(output, text);
}
