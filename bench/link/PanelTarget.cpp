#include "PanelTarget.h"

#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace {

constexpr std::string_view g_done = "DONE";

std::string_view nameOf(const std::string& id) {
    return std::string_view(id).substr(4);
}

}  // namespace

void PanelTarget::expect(std::size_t driver, const Job& job, BurstGate* pGate) {
    Inbox& inbox = m_inboxes[driver];
    inbox.check.begin(job, pGate);
    const std::lock_guard lock(m_mutex);
    inbox.isDone = false;
}

PanelTarget::Report PanelTarget::waitFor(std::size_t driver, int seconds) {
    const Inbox& inbox = m_inboxes[driver];
    std::unique_lock lock(m_mutex);
    if (!m_changed.wait_for(lock, std::chrono::seconds(seconds), [&] { return inbox.isDone; }))
        throw std::runtime_error(driverID(driver) + " is not done in time: " +
                                 std::to_string(inbox.check.count()) + " updates came");
    if (!inbox.check.complete())
        throw std::runtime_error(driverID(driver) + ": updates are missing");
    if (const std::uint64_t wrong = inbox.check.wrong() + inbox.report.wrong; wrong > 0)
        throw std::runtime_error(driverID(driver) + ": " + std::to_string(wrong) + " messages were wrong");
    return inbox.report;
}

void PanelTarget::stop() {
    m_isStopped = true;
}

void PanelTarget::goOn() {
    m_isStopped = false;
    m_isStopped.notify_all();
}

void PanelTarget::setStateValue(const std::string& id, const std::string& value) {
    if (Inbox* pInbox = inboxOf(id))
        pInbox->check.text(nameOf(id), value, false);
}

void PanelTarget::setStateValueInt(const std::string& id, int value) {
    if (Inbox* pInbox = inboxOf(id))
        pInbox->check.number(nameOf(id), value);
}

void PanelTarget::triggerEvent(const std::string& id, const std::string& value) {
    Inbox* pInbox = inboxOf(id);
    if (!pInbox)
        return;
    if (nameOf(id) != g_done) {
        pInbox->check.text(nameOf(id), value, true);
        return;
    }
    const std::lock_guard lock(m_mutex);
    long long time = 0;
    unsigned long long wrong = 1;
    std::sscanf(value.c_str(), "%lld %llu", &time, &wrong);
    pInbox->report = {time, wrong};
    pInbox->isDone = true;
    m_changed.notify_all();
}

PanelTarget::Inbox* PanelTarget::inboxOf(const std::string& id) {
    if (m_isStopped.load(std::memory_order_relaxed))
        m_isStopped.wait(true);
    if (id.size() < 5 || id[0] != 'D' || id[3] != '.')
        return nullptr;
    const auto driver = static_cast<std::size_t>((id[1] - '0') * 10 + (id[2] - '0'));
    return driver < s_drivers ? &m_inboxes[driver] : nullptr;
}
