#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "IMacroHost.h"
#include "IMacroSystem.h"
#include "MacroStore.h"

/// The panel's macros. Owned by the panel driver, which starts and stops it; in between any thread calls.
/// One thread of its own plays and shows the state, so what is shown never goes back. A playback lasts until
/// that thread has left its last send, and nothing is recorded while it lasts: so no played FID is recorded,
/// while every FID that others send during a recording is. Every refusal is logged with its reason.
class MacroSystem : public IMacroSystem {
public:
    using Clock = std::chrono::steady_clock;
    using Now = std::function<Clock::time_point()>;

    /// A recording that reaches this many FIDs takes no more.
    static constexpr std::size_t s_maxSteps = 10000;

    /// now gives the times of a recording. The host outlives this object.
    explicit MacroSystem(IMacroHost& host, Now now = &Clock::now);
    ~MacroSystem() override;

    /// Reads the macros of the directory and starts the thread. False (logged) when the system has none.
    bool start(const std::string& driverID, const std::string& directory);
    /// Ends a playback after the FID it is sending, drops a recording, saves, and joins the thread.
    void stop();

    MacroState state() const;

    IInterface* queryInterface(unsigned int id) override;
    bool startRecording(const std::string& name) override;
    bool stopRecording() override;
    bool cancelRecording() override;
    bool isRecording() const override;
    bool play(const std::string& name) override;
    /// Returns when the playback is over, but waits a second at most for a FID that is being sent, and not at
    /// all on the playing thread.
    bool stopPlaying() override;
    bool isPlaying() const override;
    std::vector<std::string> macroNames() const override;
    std::vector<MacroStep> macroSteps(const std::string& name) const override;
    bool remove(const std::string& name) override;
    bool rename(const std::string& from, const std::string& to) override;
    bool load() override;
    bool save() override;
    void fidDispatched(const std::string& fid, const FIDParameterList& parameters) override;

private:
    using Steps = MacroStore::Steps;

    struct Macro {
        std::shared_ptr<const Steps> pSteps;  ///< never changed, so a playback and a save need no copy
        bool saved = false;
    };

    std::optional<std::size_t> readStore();
    void run();
    void publish(std::unique_lock<std::mutex>& lock);
    void playNext(std::unique_lock<std::mutex>& lock);
    void endPlaying(std::unique_lock<std::mutex>& lock);
    void wakeThread();
    std::string busyReason() const;
    MacroState currentState() const;
    bool refuse(const std::string& text) const;

    IMacroHost& m_host;
    const Now m_now;

    /// Held during a load or save, which may take long; taken before m_mutex, never the other way round.
    std::mutex m_storeMutex;
    std::unique_ptr<MacroStore> m_pStore;

    /// Guards everything below; held for moments only, since every FID of a recording waits for it.
    mutable std::mutex m_mutex;
    std::condition_variable m_wakeUp;
    std::condition_variable m_playbackOver;
    std::thread::id m_threadID;
    bool m_running = false;
    bool m_changed = false;  ///< the thread has something to look at
    std::string m_controlPrefix;
    std::map<std::string, Macro> m_macros;
    std::set<std::string> m_removed;  ///< saved macros that the next save removes

    MacroState::EActivity m_activity = MacroState::EActivity::Idle;
    std::string m_name;  ///< of the macro that is recorded or played
    Steps m_recorded;
    Clock::time_point m_recordingBegan;
    std::shared_ptr<const Steps> m_pPlayed;
    Clock::time_point m_playingBegan;
    std::size_t m_nextStep = 0;
    std::size_t m_unsent = 0;
    unsigned int m_playbacks = 0;
    bool m_stopPlaying = false;
    std::vector<std::pair<std::string, std::string>> m_events;

    /// True exactly while m_activity is EActivity::Recording: spares every other FID of the system the lock.
    std::atomic<bool> m_recording{false};

    /// The thread's own.
    std::optional<MacroState> m_shown;
    Clock::time_point m_shownAt;

    std::thread m_thread;
};
