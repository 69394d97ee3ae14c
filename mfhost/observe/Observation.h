#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "KeyTable.h"
#include "SecretNames.h"
#include "StreamRing.h"
#include "StreamWriter.h"

/// The one entrance through which the taps of the host write into the stream: knows the drivers' numbers, the
/// wall clock of a time that a tap has taken anyway, and what each driver has reported. Nothing here waits
/// for a reader, and none of it logs. Owned by the host's Recorder; any thread but where it says otherwise.
class Observation {
public:
    using Time = stream::Time;
    using Clock = std::chrono::steady_clock;

    /// The ring outlives it. The values of parameters with these names are nowhere recorded.
    explicit Observation(stream::StreamRing& ring, SecretNames secrets = {});
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

    stream::StreamWriter& stream() { return m_writer; }
    stream::KeyTable& keys() { return m_keys; }
    const SecretNames& secrets() const { return m_secrets; }

    static Time now();
    /// The wall clock's time at that moment, without a look at it: as far as the two clocks were apart at the
    /// last tick.
    Time at(Clock::time_point moment) const {
        return Time(std::chrono::duration_cast<std::chrono::nanoseconds>(moment.time_since_epoch()) +
                    std::chrono::nanoseconds(m_offset.load(std::memory_order_relaxed)));
    }

    /// The driver's number in the stream; a thread that asks for the same ones again takes no lock. 0, the
    /// host, for the empty ID.
    std::uint16_t number(std::string_view driverID);

    /// Whether what the driver sends, triggers or says is refused at the moment, since it has had its share
    /// of the stream; as of the last tick.
    bool isSpent(std::uint16_t driver) {
        return m_ring.isSpent(driver, Time(std::chrono::nanoseconds(m_tick.load(std::memory_order_relaxed))));
    }
    /// So many records were not made for that.
    void addRefused(std::uint16_t driver, std::uint64_t records) { m_ring.addRefused(driver, records); }

    // What becomes of drivers. Where a driver ends that nobody has asked to end, or hangs, that is an
    // incident, too.
    void started(const std::string& driverID, int process, std::string_view text);
    void exited(const std::string& driverID, int status, const std::string& cause, bool isIncident);
    void hangs(const std::string& driverID, const std::string& cause);
    void restart(const std::string& driverID, std::string_view text);
    void configured(const std::string& driverID, std::string_view operation, bool ok,
                    std::chrono::nanoseconds took);

    /// Who asks for something.
    struct Asker {
        stream::EOrigin origin = stream::EOrigin::Host;
        std::string_view who = {};       ///< user or session
        std::string_view driverID = {};  ///< where it is a driver
    };
    /// From its beginning to its end on one thread.
    class Command {
    public:
        /// Without an observation nothing is recorded. What is given lives as long as the object.
        Command(Observation* pObservation, const Asker& asker, std::string_view line);
        ~Command();
        Command(const Command&) = delete;
        Command& operator=(const Command&) = delete;

        void setResult(bool ok, std::string answer = {});

    private:
        Observation* const m_pObservation;
        const std::uint16_t m_driver = 0;
        const Clock::time_point m_began;
        std::uint64_t m_number = 0;
        bool m_isOk = false;
        std::string m_answer;
    };

    /// A line of the host's own log. It is its driver's where it is named after one, or begins with its ID.
    void hostLine(std::string_view output, int level, std::string_view text);
    /// A line that a driver process has logged.
    void driverLine(const std::string& driverID, std::string_view output, int level, std::string_view text);
    /// A line that it has written otherwise.
    void bareLine(const std::string& driverID, std::string_view text);

    /// An end or a hang that is worth a black box.
    struct Incident {
        std::string driverID;
        std::string cause;
        Time when;
    };
    /// Each once.
    std::vector<Incident> takeIncidents();

    /// What the process of a driver has sent of values and events: how many came, and how many of these
    /// reached the store; the others were merged with later ones.
    struct Reports {
        std::uint64_t received = 0;
        std::uint64_t delivered = 0;
    };
    Reports reports(const std::string& driverID);
    /// Of the thread that receives the driver's messages, when nothing is held back.
    void addReports(std::uint16_t driver, std::uint64_t received, std::uint64_t delivered);

    /// What the calling thread alone reads and writes.
    struct ThreadPart {
        Clock::time_point clock{};    ///< when a tap of the thread has looked last
        std::uint64_t delivered = 0;  ///< values and events that have reached the store
        bool hasHeldBack = false;     ///< values that are recorded later, since they change too often
    };
    static ThreadPart& ofThread() { return t_thread; }

    /// A value's record is held back.
    void holdBack() {
        t_thread.hasHeldBack = true;
        if (!m_hasHeldBack.load(std::memory_order_relaxed))
            m_hasHeldBack.store(true, std::memory_order_relaxed);
    }
    /// Whether there has been one since this was asked last.
    bool takeHeldBack() { return m_hasHeldBack.exchange(false); }

    /// Another one for each object of the process, from 1 on.
    std::uint64_t serial() const { return m_serial; }
    /// How often there was a tick.
    std::uint32_t ticks() const { return m_ticks.load(std::memory_order_relaxed); }
    /// Every 10 ms: counts, and what the numbers mean. One thread.
    void tick(Time now, Clock::time_point moment);

private:
    struct alignas(64) Flow {
        std::atomic<std::uint64_t> received{0};
        std::atomic<std::uint64_t> delivered{0};
        Reports said;  ///< tick()'s
    };

    [[gnu::tls_model("initial-exec")]] static constinit thread_local ThreadPart t_thread;

    void note(const std::string& driverID, const std::string& cause, Time when);
    void sayReports(Time now);

    stream::StreamRing& m_ring;
    const SecretNames m_secrets;
    stream::KeyTable m_keys;
    stream::StreamWriter m_writer;
    const std::uint64_t m_serial;  ///< of this object in the process
    std::atomic<std::int64_t> m_offset;
    std::atomic<bool> m_hasHeldBack{false};
    std::atomic<std::uint32_t> m_ticks{0};
    std::atomic<std::int64_t> m_tick;        ///< when the last one was
    const std::unique_ptr<Flow[]> m_pFlows;  ///< by driver
    Time m_reportsSaid;
    std::mutex m_mutex;
    std::vector<Incident> m_incidents;
};
