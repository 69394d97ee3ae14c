#pragma once

#include <spdlog/common.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "LogRecord.h"

namespace sal {

/// One destination of the log with a thread that writes to it, so that a destination that blocks holds no
/// thread up for more than 200 ms: its queue is bounded, the oldest lines give way and are counted. A
/// destination that fails is tried again once a second. Owned by LogCore; any thread may post.
class LogChannel {
public:
    /// Opens the destination; throws what prevents it.
    using SinkMaker = std::function<spdlog::sink_ptr()>;
    /// Is told, on the writing thread, when the destination fails and when it works again.
    using Complaint = std::function<void(const std::string& text)>;

    static constexpr std::size_t s_maxLines = 8192;
    static constexpr std::size_t s_maxBytes = 8u << 20;

    LogChannel(SinkMaker makeSink, Complaint complain, const std::string& threadName = "log");
    /// Writes what is queued, but leaves a destination that does not take it within a second.
    ~LogChannel();
    LogChannel(const LogChannel&) = delete;
    LogChannel& operator=(const LogChannel&) = delete;

    void post(std::shared_ptr<const LogRecord> pRecord);

    /// Waits until all that was posted before has been written or dropped. False after the time-out.
    bool flush(std::chrono::milliseconds timeout);

private:
    struct State;
    std::shared_ptr<State> m_pState;  ///< shared with the thread, which may outlive this object
    std::thread m_thread;
};

}  // namespace sal
