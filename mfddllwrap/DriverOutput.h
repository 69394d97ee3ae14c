#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <set>
#include <string>

#include "IMessageSink.h"
#include "MessageWriter.h"
#include "sal/LogOutput.h"

/// The one way of the driver's messages to the host: keeps back what cannot be sent and tells the operator,
/// once for each ID, since a driver may report the same bad value many times a second. Any thread of the
/// driver.
class DriverOutput {
public:
    explicit DriverOutput(IMessageSink& sink);

    /// False when a text in the message is too long or the host does not take it.
    bool send(const protocol::MessageWriter& message);

private:
    void reportOversize(const protocol::MessageWriter& message);

    static constexpr std::size_t s_maximumReported = 256;

    IMessageSink& m_sink;
    sal::LogOutput* m_pLog;
    std::atomic<bool> m_failed = false;

    std::mutex m_mutex;
    std::set<std::string, std::less<>> m_reported;  ///< IDs already complained of; at most s_maximumReported
};
