#include "LogCore.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "LogLevel.h"
#include "Printable.h"

namespace sal {
LogCore::LogCore(int level) : m_level(withinScale(level)) {}

LogCore::~LogCore() {
    // The first destination hears of the troubles of the later ones until these are gone.
    while (!m_channels.empty())
        m_channels.pop_back();
}

void LogCore::setLevel(int level) {
    m_level.store(withinScale(level), std::memory_order_relaxed);
}

void LogCore::addChannel(std::shared_ptr<LogChannel> pChannel) {
    m_channels.push_back(std::move(pChannel));
}

void LogCore::write(const std::string& output, int level, std::string text) {
    {
        const std::shared_lock lock(m_observerMutex);
        if (m_pObserver)
            m_pObserver->line(output, withinScale(level), text);
    }
    post({toSpdlog(level), spdlog::log_clock::now(), output, std::move(text)});
}

void LogCore::write(const LogManager::Line& line) {
    post({toSpdlog(line.level), line.time, base::printable(line.output), base::printable(line.text)});
}

void LogCore::post(LogRecord record) {
    const auto pRecord = std::make_shared<const LogRecord>(std::move(record));
    for (const auto& pChannel : m_channels)
        pChannel->post(pRecord);
}

void LogCore::setObserver(LogManager::Observer* pObserver) {
    const std::unique_lock lock(m_observerMutex);
    m_pObserver = pObserver;
}

void LogCore::flush() {
    // A destination that blocks must not hold up the caller for ever.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    for (const auto& pChannel : m_channels)
        pChannel->flush(std::chrono::duration_cast<std::chrono::milliseconds>(
            std::max(end - std::chrono::steady_clock::now(), std::chrono::steady_clock::duration::zero())));
}

}  // namespace sal
