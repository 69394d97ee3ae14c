#include "DriverNews.h"

#include <utility>

#include "HostLog.h"
#include "Needed.h"
#include "PanelNames.h"
#include "ThreadName.h"

DriverNews::DriverNews(Send send)
    : m_send(std::move(send)), m_thread(base::neededThread("the news for the panel", [this] { run(); })) {}

DriverNews::~DriverNews() {
    stop();
}

void DriverNews::stop() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

/// Nothing for what a command or the next moment changes again.
DriverNews::News DriverNews::newsOf(const DriverTable::Driver& driver) {
    switch (driver.state) {
        case EDriverState::Running:
            return {"running", {}, driver.start};
        case EDriverState::Hung:
            return {"hung", driver.cause};
        case EDriverState::Starting:
            // The former instance of a reload has ended; before the first one there is nothing to tell.
            return driver.start > 0 ? News{"ended", driver.cause} : News();
        case EDriverState::Waiting:
        case EDriverState::Due:
        case EDriverState::Ended:
            return {"ended", driver.cause};
        case EDriverState::Parked:
            return {"parked", driver.cause};
        default:
            return {};
    }
}

void DriverNews::panelStarted(const std::vector<DriverTable::Driver>& drivers) {
    const std::lock_guard lock(m_mutex);
    m_isPanelThere = true;
    m_told.clear();
    m_waiting.clear();
    for (const DriverTable::Driver& driver : drivers)
        tell(driver);
}

void DriverNews::changed(const DriverTable::Driver& driver) {
    const std::lock_guard lock(m_mutex);
    if (driver.id == protocol::panelDriverID)
        m_isPanelThere = m_isPanelThere && driver.isAlive;
    if (m_isPanelThere)
        tell(driver);
}

void DriverNews::tell(const DriverTable::Driver& driver) {
    const News news = newsOf(driver);
    if (driver.id == protocol::panelDriverID || news.state.empty() || m_stopping)
        return;
    if (std::exchange(m_told[driver.id], news) == news)
        return;
    FIDParameterList parameters;
    parameters.add("id", driver.id);
    parameters.add("state", news.state);
    if (!news.cause.empty())
        parameters.add("cause", news.cause);
    if (m_waiting.size() >= s_capacity) {
        m_waiting.pop_front();
        if (!std::exchange(m_isLosing, true))
            hostLog(sal::LogOutput::eWarning)
                << "PANEL: takes no news of the drivers; the oldest are dropped" << std::endl;
    }
    m_waiting.push_back(std::move(parameters));
    m_changed.notify_one();
}

void DriverNews::run() {
    base::nameThread("driver news");
    const std::string fid = std::string(protocol::panelDriverID) + ".DRIVER";
    for (;;) {
        FIDParameterList parameters;
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_stopping || !m_waiting.empty(); });
            if (m_stopping)
                return;
            parameters = std::move(m_waiting.front());
            m_waiting.pop_front();
            m_isLosing = m_isLosing && !m_waiting.empty();
        }
        // What the panel driver does not take it says itself.
        static_cast<void>(m_send(fid, parameters));
    }
}
