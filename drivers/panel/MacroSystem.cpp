#include "MacroSystem.h"

#include <algorithm>
#include <system_error>

#include "InterfaceIds.h"
#include "ThreadName.h"

namespace {

constexpr std::chrono::milliseconds s_stepCountPeriod{200};
constexpr std::chrono::seconds s_stopPatience{1};

std::string inQuotes(const std::string& text) {
    return '"' + text + '"';
}

}  // namespace

MacroSystem::MacroSystem(IMacroHost& host, Now now) : m_host(host), m_now(std::move(now)) {}

MacroSystem::~MacroSystem() {
    stop();
}

bool MacroSystem::start(const std::string& driverID, const std::string& directory) {
    stop();
    {
        std::lock_guard storeLock(m_storeMutex);
        m_pStore = std::make_unique<MacroStore>(
            directory, [this](const std::string& text) { m_host.macroLog(sal::LogOutput::eError, text); });
    }
    const std::optional<std::size_t> count = readStore();
    if (count && *count > 0)
        m_host.macroLog(sal::LogOutput::eInfo, std::to_string(*count) + " macros loaded");
    {
        std::lock_guard lock(m_mutex);
        m_controlPrefix = driverID + ".MACRO.";
        m_running = true;
        m_changed = true;
        m_shown.reset();
    }
    try {
        m_thread = std::thread([this, driverID] {
            base::nameThread(driverID, "macros");
            run();
        });
    } catch (const std::system_error& error) {
        {
            std::lock_guard lock(m_mutex);
            m_running = false;
        }
        m_host.macroLog(sal::LogOutput::eError, std::string("no thread for macros: ") + error.what());
        return false;
    }
    return true;
}

void MacroSystem::stop() {
    bool wasRunning = false;
    std::string dropped;
    {
        std::lock_guard lock(m_mutex);
        wasRunning = std::exchange(m_running, false);
        if (m_activity == MacroState::EActivity::Recording) {
            m_recording = false;
            m_activity = MacroState::EActivity::Idle;
            m_recorded.clear();
            dropped = std::exchange(m_name, {});
        }
        m_stopPlaying = true;
        wakeThread();
    }
    if (m_thread.joinable())
        m_thread.join();
    if (!dropped.empty())
        m_host.macroLog(sal::LogOutput::eWarning,
                        "recording of macro " + inQuotes(dropped) + " dropped, the driver stops");
    if (wasRunning)
        save();
}

void MacroSystem::wakeThread() {
    m_changed = true;
    m_wakeUp.notify_all();
}

MacroState MacroSystem::currentState() const {
    MacroState state;
    state.activity = m_activity;
    state.name = m_name;
    if (m_activity == MacroState::EActivity::Recording)
        state.steps = static_cast<int>(m_recorded.size());
    else if (m_activity == MacroState::EActivity::Playing)
        state.steps = static_cast<int>(m_nextStep);
    state.unsaved = !m_removed.empty();
    for (const auto& [name, macro] : m_macros) {
        state.names.push_back(name);
        state.unsaved = state.unsaved || !macro.saved;
    }
    return state;
}

MacroState MacroSystem::state() const {
    std::lock_guard lock(m_mutex);
    return currentState();
}

void MacroSystem::run() {
    std::unique_lock lock(m_mutex);
    m_threadID = std::this_thread::get_id();
    while (m_running) {
        publish(lock);
        if (!m_running)
            break;
        if (m_activity == MacroState::EActivity::Playing) {
            playNext(lock);
            continue;
        }
        const auto somethingToDo = [this] { return m_changed || !m_running; };
        if (m_activity == MacroState::EActivity::Recording)
            m_wakeUp.wait_for(lock, s_stepCountPeriod, somethingToDo);
        else
            m_wakeUp.wait(lock, somethingToDo);
    }
    if (m_activity == MacroState::EActivity::Playing)
        endPlaying(lock);
    m_changed = true;
    publish(lock);
}

/// Shows what changed since the last time, with the lock released.
void MacroSystem::publish(std::unique_lock<std::mutex>& lock) {
    const bool changed = std::exchange(m_changed, false);
    const bool stepsDue =
        m_activity != MacroState::EActivity::Idle && Clock::now() >= m_shownAt + s_stepCountPeriod;
    if (!changed && !stepsDue)
        return;
    MacroState state = currentState();
    const auto events = std::exchange(m_events, {});
    lock.unlock();
    if (m_shown != state) {
        m_host.showMacroState(state, m_shown);
        m_shown = std::move(state);
        m_shownAt = Clock::now();
    }
    for (const auto& [eventID, name] : events)
        m_host.macroEvent(eventID, name);
    lock.lock();
}

/// Sends the next FID when its time has come, waits for it (not beyond the next look at the state) otherwise.
void MacroSystem::playNext(std::unique_lock<std::mutex>& lock) {
    if (m_stopPlaying || m_nextStep == m_pPlayed->size()) {
        endPlaying(lock);
        return;
    }
    const auto pSteps = m_pPlayed;
    const MacroStep& step = (*pSteps)[m_nextStep];
    const Clock::time_point due = m_playingBegan + step.offset;
    const Clock::time_point now = Clock::now();
    if (now < due) {
        m_wakeUp.wait_until(lock, std::min(due, now + s_stepCountPeriod),
                            [this] { return m_changed || m_stopPlaying || !m_running; });
        return;
    }
    lock.unlock();
    const bool sent = m_host.sendMacroFid(step.fid, step.parameters);
    lock.lock();
    ++m_nextStep;
    if (!sent)
        ++m_unsent;
}

void MacroSystem::endPlaying(std::unique_lock<std::mutex>& lock) {
    const std::string name = std::exchange(m_name, {});
    const std::size_t count = m_pPlayed->size();
    const std::size_t played = m_nextStep;
    const std::size_t unsent = m_unsent;
    m_pPlayed.reset();
    m_activity = MacroState::EActivity::Idle;
    m_events.emplace_back(played == count ? "MACRO.PLAYED" : "MACRO.STOPPED", name);
    m_changed = true;
    m_playbackOver.notify_all();

    lock.unlock();
    const std::string text = played == count
                                 ? "macro " + inQuotes(name) + " played"
                                 : "macro " + inQuotes(name) + " stopped after " + std::to_string(played) +
                                       " of " + std::to_string(count) + " FIDs";
    if (unsent == 0)
        m_host.macroLog(sal::LogOutput::eInfo, text);
    else
        m_host.macroLog(sal::LogOutput::eError,
                        text + ", but " + std::to_string(unsent) + " FIDs could not be sent");
    lock.lock();
}

IInterface* MacroSystem::queryInterface(unsigned int id) {
    return id == IID_IMacroSystem ? this : nullptr;
}

bool MacroSystem::refuse(const std::string& text) const {
    m_host.macroLog(sal::LogOutput::eWarning, text);
    return false;
}

/// Why no recording or playback can begin; empty when one can.
std::string MacroSystem::busyReason() const {
    if (!m_running)
        return "the driver is not running";
    if (m_activity == MacroState::EActivity::Recording)
        return "macro " + inQuotes(m_name) + " is being recorded";
    if (m_activity == MacroState::EActivity::Playing)
        return "macro " + inQuotes(m_name) + " is being played";
    return {};
}

bool MacroSystem::startRecording(const std::string& name) {
    if (!MacroStore::isValidName(name))
        return refuse("cannot record macro " + inQuotes(name) +
                      ": a name has 1 to 80 bytes and no control characters");
    std::string reason;
    {
        std::lock_guard lock(m_mutex);
        reason = busyReason();
        if (reason.empty()) {
            m_name = name;
            m_recorded.clear();
            m_recordingBegan = m_now();
            m_activity = MacroState::EActivity::Recording;
            m_recording = true;
            wakeThread();
        }
    }
    if (!reason.empty())
        return refuse("cannot record macro " + inQuotes(name) + ": " + reason);
    m_host.macroLog(sal::LogOutput::eInfo, "recording macro " + inQuotes(name));
    return true;
}

bool MacroSystem::stopRecording() {
    std::string name;
    std::size_t count = 0;
    {
        std::lock_guard lock(m_mutex);
        if (m_activity == MacroState::EActivity::Recording) {
            name = std::exchange(m_name, {});
            count = m_recorded.size();
            m_recording = false;
            m_activity = MacroState::EActivity::Idle;
            m_macros[name] = {std::make_shared<const Steps>(std::exchange(m_recorded, {})), false};
            m_removed.erase(name);
            m_events.emplace_back("MACRO.RECORDED", name);
            wakeThread();
        }
    }
    if (name.empty())
        return refuse("no macro is being recorded, so there is nothing to keep");
    m_host.macroLog(sal::LogOutput::eInfo, "macro " + inQuotes(name) + " recorded, " + std::to_string(count) +
                                               " FIDs, not saved yet");
    return true;
}

bool MacroSystem::cancelRecording() {
    std::string name;
    {
        std::lock_guard lock(m_mutex);
        if (m_activity == MacroState::EActivity::Recording) {
            name = std::exchange(m_name, {});
            m_recording = false;
            m_activity = MacroState::EActivity::Idle;
            m_recorded.clear();
            wakeThread();
        }
    }
    if (name.empty())
        return refuse("no macro is being recorded, so there is nothing to cancel");
    m_host.macroLog(sal::LogOutput::eInfo, "recording of macro " + inQuotes(name) + " cancelled");
    return true;
}

bool MacroSystem::isRecording() const {
    return m_recording;
}

bool MacroSystem::play(const std::string& name) {
    std::string reason;
    std::size_t count = 0;
    {
        std::lock_guard lock(m_mutex);
        reason = busyReason();
        if (reason.empty()) {
            const auto macro = m_macros.find(name);
            if (macro == m_macros.end()) {
                reason = "there is none of that name";
            } else {
                m_name = name;
                m_pPlayed = macro->second.pSteps;
                count = m_pPlayed->size();
                m_playingBegan = Clock::now();
                m_nextStep = 0;
                m_unsent = 0;
                m_stopPlaying = false;
                ++m_playbacks;
                m_activity = MacroState::EActivity::Playing;
                wakeThread();
            }
        }
    }
    if (!reason.empty())
        return refuse("cannot play macro " + inQuotes(name) + ": " + reason);
    m_host.macroLog(sal::LogOutput::eInfo,
                    "playing macro " + inQuotes(name) + ", " + std::to_string(count) + " FIDs");
    return true;
}

bool MacroSystem::stopPlaying() {
    {
        std::unique_lock lock(m_mutex);
        if (m_activity == MacroState::EActivity::Playing) {
            m_stopPlaying = true;
            wakeThread();
            // The played FID itself may be what stops the playback.
            if (m_threadID != std::this_thread::get_id()) {
                m_playbackOver.wait_for(lock, s_stopPatience, [this, playback = m_playbacks] {
                    return m_activity != MacroState::EActivity::Playing || m_playbacks != playback;
                });
            }
            return true;
        }
    }
    return refuse("no macro is being played, so there is nothing to stop");
}

bool MacroSystem::isPlaying() const {
    std::lock_guard lock(m_mutex);
    return m_activity == MacroState::EActivity::Playing;
}

std::vector<std::string> MacroSystem::macroNames() const {
    return state().names;
}

std::vector<MacroStep> MacroSystem::macroSteps(const std::string& name) const {
    std::lock_guard lock(m_mutex);
    const auto macro = m_macros.find(name);
    return macro == m_macros.end() ? std::vector<MacroStep>() : *macro->second.pSteps;
}

bool MacroSystem::remove(const std::string& name) {
    bool removed = false;
    {
        std::lock_guard lock(m_mutex);
        removed = m_macros.erase(name) > 0;
        if (removed) {
            m_removed.insert(name);
            wakeThread();
        }
    }
    if (!removed)
        return refuse("cannot delete macro " + inQuotes(name) + ": there is none of that name");
    m_host.macroLog(sal::LogOutput::eInfo, "macro " + inQuotes(name) + " deleted, not saved yet");
    return true;
}

bool MacroSystem::rename(const std::string& from, const std::string& to) {
    std::string reason;
    if (!MacroStore::isValidName(to)) {
        reason = "a name has 1 to 80 bytes and no control characters";
    } else {
        std::lock_guard lock(m_mutex);
        const auto macro = m_macros.find(from);
        if (macro == m_macros.end()) {
            reason = "there is none of that name";
        } else if (m_macros.contains(to)) {
            reason = "there is one of that name already";
        } else {
            m_macros[to] = {macro->second.pSteps, false};
            m_macros.erase(macro);
            m_removed.insert(from);
            m_removed.erase(to);
            wakeThread();
        }
    }
    if (!reason.empty())
        return refuse("cannot rename macro " + inQuotes(from) + " to " + inQuotes(to) + ": " + reason);
    m_host.macroLog(sal::LogOutput::eInfo,
                    "macro " + inQuotes(from) + " renamed to " + inQuotes(to) + ", not saved yet");
    return true;
}

bool MacroSystem::load() {
    const std::optional<std::size_t> count = readStore();
    if (count)
        m_host.macroLog(sal::LogOutput::eInfo, std::to_string(*count) + " macros loaded");
    return count.has_value();
}

std::optional<std::size_t> MacroSystem::readStore() {
    std::lock_guard storeLock(m_storeMutex);
    if (!m_pStore) {
        refuse("cannot load macros: the driver has not started");
        return std::nullopt;
    }
    auto macros = m_pStore->readAll();
    if (!macros)
        return std::nullopt;
    std::lock_guard lock(m_mutex);
    m_macros.clear();
    m_removed.clear();
    for (auto& [name, steps] : *macros)
        m_macros[name] = {std::make_shared<const Steps>(std::move(steps)), true};
    wakeThread();
    return macros->size();
}

bool MacroSystem::save() {
    std::lock_guard storeLock(m_storeMutex);
    if (!m_pStore)
        return refuse("cannot save macros: the driver has not started");
    std::map<std::string, std::shared_ptr<const Steps>> unsaved;
    std::set<std::string> removed;
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [name, macro] : m_macros) {
            if (!macro.saved)
                unsaved.emplace(name, macro.pSteps);
        }
        removed = m_removed;
    }
    if (unsaved.empty() && removed.empty())
        return true;

    // New names first: a renamed macro is on disk twice for a moment rather than not at all.
    const std::size_t changes = unsaved.size() + removed.size();
    std::erase_if(unsaved,
                  [this](const auto& macro) { return !m_pStore->write(macro.first, *macro.second); });
    std::erase_if(removed, [this](const std::string& name) { return !m_pStore->remove(name); });
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [name, pSteps] : unsaved) {
            const auto macro = m_macros.find(name);
            if (macro != m_macros.end() && macro->second.pSteps == pSteps)
                macro->second.saved = true;
        }
        for (const std::string& name : removed)
            m_removed.erase(name);
        wakeThread();
    }
    if (unsaved.size() + removed.size() != changes)
        return false;
    m_host.macroLog(sal::LogOutput::eInfo, "macros saved");
    return true;
}

void MacroSystem::fidDispatched(const std::string& fid, const FIDParameterList& parameters) {
    if (!m_recording.load(std::memory_order_relaxed))
        return;
    std::string full;
    {
        std::lock_guard lock(m_mutex);
        // A FID without a driver ID goes nowhere, now or when it is played.
        if (m_activity != MacroState::EActivity::Recording || fid.starts_with(m_controlPrefix) ||
            fid.find('.') == std::string::npos || m_recorded.size() >= s_maxSteps)
            return;
        const auto offset = std::chrono::duration_cast<std::chrono::milliseconds>(m_now() - m_recordingBegan);
        m_recorded.push_back({offset, fid, parameters});
        if (m_recorded.size() == s_maxSteps)
            full = m_name;
    }
    if (!full.empty())
        m_host.macroLog(sal::LogOutput::eWarning, "macro " + inQuotes(full) + " is full with " +
                                                      std::to_string(s_maxSteps) +
                                                      " FIDs; further ones are not recorded");
}
