#include "LogCore.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "sal/LogOutput.h"

namespace sal {
namespace {

int withinScale(int level) {
    return std::clamp<int>(level, LogOutput::eCritical, LogOutput::eTrace);
}

spdlog::level::level_enum spdlogLevel(int level) {
    switch (withinScale(level)) {
        case LogOutput::eCritical:
            return spdlog::level::critical;
        case LogOutput::eError:
            return spdlog::level::err;
        case LogOutput::eWarning:
            return spdlog::level::warn;
        case LogOutput::eInfo:
            return spdlog::level::info;
        default:
            return spdlog::level::trace;
    }
}

}  // namespace

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
    const auto pRecord = std::make_shared<const LogRecord>(
        LogRecord{spdlogLevel(level), spdlog::log_clock::now(), output, std::move(text)});
    for (const auto& pChannel : m_channels)
        pChannel->post(pRecord);
}

void LogCore::flush() {
    // A destination that blocks must not hold up the caller for ever.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    for (const auto& pChannel : m_channels)
        pChannel->flush(std::chrono::duration_cast<std::chrono::milliseconds>(
            std::max(end - std::chrono::steady_clock::now(), std::chrono::steady_clock::duration::zero())));
}

}  // namespace sal
