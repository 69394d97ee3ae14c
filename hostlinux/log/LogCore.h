#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "LogChannel.h"

namespace sal {

/// What the outputs of one LogManager share: the level and the destinations. The manager and its outputs own
/// it; a thread that is just writing a line keeps it alive until that line is handed over.
/// Any thread; the channels are added before others know of it.
class LogCore {
public:
    explicit LogCore(int level);
    ~LogCore();
    LogCore(const LogCore&) = delete;
    LogCore& operator=(const LogCore&) = delete;

    void setLevel(int level);
    int level() const { return m_level.load(std::memory_order_relaxed); }
    bool enabled(int level) const { return level <= m_level.load(std::memory_order_relaxed); }

    void addChannel(std::shared_ptr<LogChannel> pChannel);
    void write(const std::string& output, int level, std::string text);
    void flush();

private:
    std::atomic<int> m_level;
    std::vector<std::shared_ptr<LogChannel>> m_channels;
};

}  // namespace sal
