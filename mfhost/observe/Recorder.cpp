#include "Recorder.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "Printable.h"
#include "ThreadName.h"

namespace {

constexpr std::chrono::milliseconds s_interval{10};
/// The numbers of how many seconds are remembered beside those that a black box needs.
constexpr std::size_t s_spareSeconds = 5;
constexpr const char* s_blackBoxes = "/blackbox";
/// What a ring that a host has left is named after, where a driver's has its ID.
constexpr const char* s_host = "host";

}  // namespace

Recorder::Recorder(stream::StreamRing& ring, Settings settings, std::vector<RingPlace::Left> left,
                   Report report)
    : m_ring(ring),
      m_settings(std::move(settings)),
      m_report(std::move(report)),
      m_source(ring),
      m_observation(ring, m_settings.secrets),
      m_recorded(m_source, m_observation.keys()),
      m_left(std::move(left)) {}

Recorder::~Recorder() {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void Recorder::start(std::function<void()> beforeRound) {
    m_beforeRound = std::move(beforeRound);
    try {
        m_thread = std::thread([this] { run(); });
    } catch (const std::system_error& error) {
        m_report("nothing is recorded: no thread can be had: " + error.code().message(), false);
    }
}

bool Recorder::stop(std::chrono::milliseconds limit) {
    std::unique_lock lock(m_mutex);
    m_isStopping = true;
    m_changed.notify_all();
    return !m_thread.joinable() || m_changed.wait_for(lock, limit, [this] { return m_hasEnded; });
}

void Recorder::run() {
    base::nameThread("recorder");
    openKeeper();
    for (bool isLast = false; !isLast;) {
        {
            std::unique_lock lock(m_mutex);
            isLast = m_changed.wait_for(lock, s_interval, [this] { return m_isStopping; });
        }
        try {
            round(isLast);
        } catch (const std::exception& error) {
            // Memory, that is: the next round may have it again.
            m_report(std::string("the recording is held up: ") + error.what(), false);
        }
    }
    m_pKeeper.reset();
    const std::lock_guard lock(m_mutex);
    m_hasEnded = true;
    m_changed.notify_all();
}

void Recorder::openKeeper() {
    for (const RingPlace::Left& left : m_left)
        Keeper::keepRest({.directory = left.recording, .keep = m_settings.keep}, *left.pSource, m_report);
    if (m_settings.directory.empty())
        return;
    BlackBox::removeUnfinished(m_settings.directory + s_blackBoxes);
    std::string error;
    m_pKeeper =
        Keeper::open({.directory = m_settings.directory, .keep = m_settings.keep}, m_source, m_report, error);
    if (!m_pKeeper)
        m_report("nothing is recorded beyond the last minutes: " + error, false);
}

void Recorder::round(bool isLast) {
    m_ring.makeReady();
    if (m_beforeRound)
        m_beforeRound();
    const auto now = Clock::now();
    m_observation.tick(Observation::now(), now);
    if (m_seconds.empty() || now - m_seconds.back().when >= std::chrono::seconds(1)) {
        m_seconds.push_back({now, m_ring.lastNumber() + 1});
        const auto most = static_cast<std::size_t>(m_settings.before.count() + m_settings.after.count());
        if (m_seconds.size() > most + s_spareSeconds)
            m_seconds.pop_front();
    }
    if (m_pKeeper) {
        const std::uint64_t before = m_pKeeper->lapped();
        m_pKeeper->step(now);
        m_recorded.addLapped(RecordedStream::EReader::Recorder, m_pKeeper->lapped() - before);
    }
    takeIncidents(now);
    // What has not been copied at the end has no later moment.
    do {
        copyAside(now, isLast);
    } while (isLast && (m_pBox || !m_pending.empty() || !m_left.empty()));
}

void Recorder::takeIncidents(Clock::time_point now) {
    for (Observation::Incident& incident : m_observation.takeIncidents()) {
        const bool isPending = std::any_of(m_pending.begin(), m_pending.end(), [&](const Pending& other) {
            return other.incident.driverID == incident.driverID;
        });
        // What a driver does that ends again and again is in the box of its first end.
        if (!isPending && m_pKeeper)
            m_pending.push_back({std::move(incident), now + m_settings.after});
    }
}

void Recorder::copyAside(Clock::time_point now, bool isLast) {
    if (m_pBox && !stepBox())
        return;
    if (!m_left.empty()) {
        saveLeft();
        return;
    }
    if (m_pending.empty() || (!isLast && m_pending.front().due > now))
        return;
    const Pending pending = std::move(m_pending.front());
    m_pending.pop_front();
    const auto from = pending.due - m_settings.after - m_settings.before;
    std::uint64_t first = 0;
    for (const Second& second : m_seconds) {
        if (second.when <= from)
            first = second.number;
    }
    begin(m_source, first, pending.incident, m_settings.directory + s_blackBoxes);
}

/// Its last minute, to where its segments are; its files only go once that is on the disk.
void Recorder::saveLeft() {
    const RingPlace::Left& left = m_left.front();
    if (!std::exchange(m_isLeftBegun, true)) {
        // The end is where its last record is.
        std::string error;
        stream::Time last = left.pSource->started();
        if (const auto pReader =
                stream::StreamReader::open(*left.pSource, stream::StreamCursor::oldest(), error)) {
            for (;;) {
                const auto result = pReader->next({});
                if (result == stream::IStreamReader::EResult::Record)
                    last = std::max(last, pReader->record().time);
                else if (result != stream::IStreamReader::EResult::Gap)
                    break;
            }
        }
        begin(*left.pSource, 0, {s_host, "killed", last}, left.recording + s_blackBoxes);
        if (m_pBox)
            return;
    }
    m_isLeftBegun = false;
    m_left.front().remove();
    m_left.erase(m_left.begin());
}

void Recorder::begin(const stream::StreamSource& source, std::uint64_t firstNumber,
                     const Observation::Incident& incident, const std::string& directory) {
    std::string error;
    m_boxDirectory = directory;
    m_pBox = BlackBox::begin(source, firstNumber, incident.when - m_settings.before,
                             incident.when + m_settings.after, directory,
                             BlackBox::nameOf(incident.when, incident.driverID, incident.cause), error);
    if (!m_pBox && std::exchange(m_boxFault, error) != error)
        m_report(incident.driverID + ": its last minute is not kept: " + error, false);
}

/// Whether it has come to its end.
bool Recorder::stepBox() {
    const auto state = m_pBox->step();
    if (state == BlackBox::EState::Goes)
        return false;
    if (state == BlackBox::EState::Done)
        BlackBox::keepNewest(m_boxDirectory, m_settings.blackBoxes);
    else if (std::exchange(m_boxFault, m_pBox->text()) != m_pBox->text())
        m_report("a black box is not kept: " + m_pBox->text(), false);
    m_pBox.reset();
    return true;
}
