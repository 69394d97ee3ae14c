#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "BlackBox.h"
#include "Keeper.h"
#include "Observation.h"
#include "RecordedStream.h"
#include "RingPlace.h"
#include "StreamSource.h"

/// Keeps what the taps record: has the ring's records written to segments, and the last minute of it copied
/// aside when a driver ends unasked or hangs, or a host has left its ring. All of it on one thread,
/// "recorder", every 10 ms. Owned by Host; outlives all taps.
class Recorder {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::string directory;                    ///< of the segments; empty: nothing is written to a disk
        std::size_t keep = std::size_t{1} << 30;  ///< bytes of all of them
        std::chrono::seconds before{60};          ///< what a black box has of the time before
        std::chrono::seconds after{10};           ///< and after
        std::size_t blackBoxes = 20;
        SecretNames secrets = {};  ///< what is not recorded
    };
    /// Takes a line for the operator, without the end of line; true for one that is no fault. On the
    /// recorder's thread.
    using Report = std::function<void(const std::string& line, bool isGoodNews)>;

    /// The ring outlives it.
    Recorder(stream::StreamRing& ring, Settings settings, std::vector<RingPlace::Left> left, Report report);
    ~Recorder();  ///< as stop()
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    Observation& observation() { return m_observation; }
    const stream::StreamSource& source() const { return m_source; }
    const RecordedStream& recorded() const { return m_recorded; }
    const std::string& directory() const { return m_settings.directory; }

    /// Begins to write. Each round begins with this call.
    void start(std::function<void()> beforeRound);
    /// Writes all that there is, and ends; false where that takes longer than the limit. Any thread.
    bool stop(std::chrono::milliseconds limit);

private:
    struct Pending {
        Observation::Incident incident;
        Clock::time_point due;
    };
    struct Second {
        Clock::time_point when;
        std::uint64_t number = 0;  ///< of the next record then
    };

    void run();
    void round(bool isLast);
    void openKeeper();
    void takeIncidents(Clock::time_point now);
    void copyAside(Clock::time_point now, bool isLast);
    void saveLeft();
    void begin(const stream::StreamSource& source, std::uint64_t firstNumber,
               const Observation::Incident& incident, const std::string& directory);
    bool stepBox();

    stream::StreamRing& m_ring;
    const Settings m_settings;
    const Report m_report;
    const stream::StreamSource m_source;
    Observation m_observation;
    const RecordedStream m_recorded;
    std::function<void()> m_beforeRound;

    // The thread's own.
    std::vector<RingPlace::Left> m_left;
    bool m_isLeftBegun = false;  ///< the box of the first of them
    std::unique_ptr<Keeper> m_pKeeper;
    std::deque<Second> m_seconds;
    std::deque<Pending> m_pending;
    std::unique_ptr<BlackBox> m_pBox;
    std::string m_boxDirectory;
    std::string m_boxFault;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isStopping = false;
    bool m_hasEnded = false;
    std::thread m_thread;
};
