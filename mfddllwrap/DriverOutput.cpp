#include "DriverOutput.h"

#include <functional>

#include "sal/Assert.h"
#include "sal/LogManager.h"

DriverOutput::DriverOutput(IMessageSink& sink)
    : m_sink(sink), m_pLog(sal::LogManager::getInstance()->getLogOutput("MFD")) {}

bool DriverOutput::send(const protocol::MessageWriter& message) {
    if (message.oversize() > 0) {
        reportOversize(message);
        return false;
    }
    // No message of a driver has fields for more than a message holds.
    SAL_ASSERT(message.fits());
    if (m_sink.send(message.data(), message.length()))
        return true;
    if (!m_failed.exchange(true))
        m_pLog->level(sal::LogOutput::eInfo)
            << "The host takes no more messages; what the driver reports is dropped" << std::endl;
    return false;
}

void DriverOutput::reportOversize(const protocol::MessageWriter& message) {
    // An ID may itself be what is too long.
    const std::string_view subject = message.subject().substr(0, protocol::maximumText);
    const std::lock_guard lock(m_mutex);
    if (m_reported.size() == s_maximumReported || !m_reported.emplace(subject).second)
        return;
    m_pLog->level(sal::LogOutput::eWarning)
        << "\"" << subject << "\" not sent: a text of " << message.oversize() << " bytes, "
        << protocol::maximumText << " is the most" << std::endl;
    if (m_reported.size() == s_maximumReported)
        m_pLog->level(sal::LogOutput::eWarning)
            << "Too long texts of further IDs are no longer reported" << std::endl;
}
