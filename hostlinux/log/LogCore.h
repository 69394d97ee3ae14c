#pragma once

#include <atomic>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

#include "LogChannel.h"
#include "sal/LogManager.h"

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
    /// Tells the observer, too.
    void write(const std::string& output, int level, std::string text);
    /// A line of another process.
    void write(const LogManager::Line& line);
    void setObserver(LogManager::Observer* pObserver);
    void flush();

private:
    void post(LogRecord record);

    std::atomic<int> m_level;
    std::shared_mutex m_observerMutex;
    LogManager::Observer* m_pObserver = nullptr;
    std::vector<std::shared_ptr<LogChannel>> m_channels;
};

}  // namespace sal
