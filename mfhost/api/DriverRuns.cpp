#include "DriverRuns.h"

#include <algorithm>
#include <utility>

#include "DriverTable.h"
#include "GapJson.h"
#include "JsonText.h"
#include "KeyNames.h"
#include "StreamText.h"

namespace {

/// What a record says of a driver's life; nothing for one that is about something else.
std::optional<ELifeStep> stepOf(stream::EKind kind) {
    switch (kind) {
        case stream::EKind::Start:
            return ELifeStep::Start;
        case stream::EKind::Exit:
            return ELifeStep::End;
        case stream::EKind::Hang:
            return ELifeStep::Hang;
        case stream::EKind::Restart:
            return ELifeStep::Restart;
        default:
            return std::nullopt;
    }
}

}  // namespace

DriverRuns::DriverRuns(std::string driverID, std::vector<LifeStep> remembered, std::size_t most)
    : m_driverID(std::move(driverID)), m_most(most), m_isFull(remembered.size() >= DriverTable::s_mostSteps) {
    for (LifeStep& step : remembered)
        add(m_remembered, {step.time, inWords(step.step), step.pid, step.start, std::move(step.text)});
}

void DriverRuns::add(std::deque<Step>& steps, Step step) {
    steps.push_back(std::move(step));
    if (steps.size() <= m_most)
        return;
    steps.pop_front();
    m_isMore = true;
}

std::optional<stream::Time> DriverRuns::missingBefore(
    std::chrono::system_clock::time_point hostStarted) const {
    if (m_remembered.size() >= m_most)
        return std::nullopt;
    return m_isFull ? m_remembered.front().time : stream::Time(hostStarted);
}

void DriverRuns::take(const stream::StreamRecord& record, const stream::KeyNames& names, bool) {
    const auto step = stepOf(record.kind);
    if (!step || names.driver(record.driver()) != m_driverID)
        return;
    const int pid = *step == ELifeStep::Start ? static_cast<int>(record.value) : 0;
    add(m_recorded, {record.time, inWords(*step), pid, 0, record.text});
}

void DriverRuns::write(JsonText& json, const std::vector<RecordedPast::Hole>& holes) const {
    std::size_t count = 0;
    const auto writeAll = [&](const std::deque<Step>& steps) {
        for (auto step = steps.rbegin(); step != steps.rend() && count < m_most; ++step, ++count)
            json.beginObject()
                .member("time", stream::utcText(step->time))
                .member("step", std::string(step->step))
                .member("pid", step->pid > 0 ? std::optional(step->pid) : std::nullopt)
                .member("start", step->start > 0 ? std::optional(step->start) : std::nullopt)
                .member("text", step->text)
                .endObject();
    };
    const bool isUnread = std::any_of(holes.begin(), holes.end(), [](const RecordedPast::Hole& hole) {
        return hole.reason == RecordedPast::EHole::NotRead;
    });
    json.member("driver", m_driverID)
        .member("more", isUnread || m_isMore || m_remembered.size() + m_recorded.size() > m_most)
        .name("steps")
        .beginArray();
    writeAll(m_remembered);
    writeAll(m_recorded);
    json.endArray().name("gaps").beginArray();
    for (const RecordedPast::Hole& hole : holes) {
        // Before the first record there was nothing to be missed.
        if (hole.from != stream::Time())
            writeGap(json, hole);
    }
    json.endArray();
}
