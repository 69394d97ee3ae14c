#include "SimulatedLink.h"

#include <utility>
#include <variant>

#include "SteadyTime.h"

SimulatedLink::SimulatedLink(LinkSettings settings, const ValueNames& names)
    : m_settings(std::move(settings)), m_names(names), m_isLive(names.size()), m_numbers(names.size()) {}

void SimulatedLink::makeStale(const std::string& key) {
    const auto place = m_names.place(key);
    if (!place || !m_isLive[*place])
        return;
    m_isLive[*place] = false;
    --m_live;
}

void SimulatedLink::noteSent() {
    const std::lock_guard lock(m_mutex);
    m_sent.push_back(steadyNanoseconds());
}

Delays SimulatedLink::takeDelays() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_delays, {});
}

void SimulatedLink::setStateValue(const std::string& stateID, const std::string& value) {
    if (stateID == "LINK")
        m_isUp = value == "up";
}

void SimulatedLink::take(const std::string& key, const ILinkHost::Value& value) {
    if (const auto* const pText = std::get_if<std::string>(&value)) {
        if (const auto blank = pText->find(' '); blank != std::string::npos)
            report(key, static_cast<std::uint32_t>(std::stoul(pText->substr(blank + 1))));
    } else if (const auto* const pFloat = std::get_if<float>(&value)) {
        report(key, static_cast<std::uint32_t>(*pFloat));
    } else if (const auto* const pInt = std::get_if<int>(&value)) {
        report(key, static_cast<std::uint32_t>(*pInt));
    }
}

void SimulatedLink::report(const std::string& key, std::uint32_t number) {
    const auto place = m_names.place(key);
    if (!place)
        return;
    if (!m_isLive[*place]) {
        m_isLive[*place] = true;
        ++m_live;
    }
    // What is told again after a break is no change.
    if (std::exchange(m_numbers[*place], number) == number || !m_pFar)
        return;
    const SimulatedHost::Change change = m_pFar->last(*place);
    if (change.number != number)
        return;
    const std::int64_t now = steadyNanoseconds();
    const std::lock_guard lock(m_mutex);
    m_delays.values.push_back(Delays::kept(now - change.madeAt));
    m_delays.ways.push_back(Delays::kept(now - change.toldAt));
}

/// Answers come in the order of the FIDs.
void SimulatedLink::triggerEvent(const std::string& eventID, const std::string& value) {
    if (eventID != "OUTCOME")
        return;
    const std::int64_t now = steadyNanoseconds();
    const std::lock_guard lock(m_mutex);
    if (m_sent.empty())
        return;
    if (value.ends_with(": done"))
        m_delays.fids.push_back(Delays::kept(now - m_sent.front()));
    else
        ++m_delays.notDone;
    m_sent.pop_front();
}
