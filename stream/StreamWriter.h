#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string_view>

#include "StreamEntry.h"
#include "StreamRecord.h"

namespace stream {

class KeyTable;
class StreamRing;

/// How far a FID came, as its record says.
enum class EFidOutcome : std::uint8_t {
    Begins = 0,   ///< it is handed to a driver in the host's process
    Written = 1,  ///< it is in the queue of a driver process
    NoSuchDriver = 2,
    NotRunning = 3,
    TakesNoFids = 4,
    TooLong = 5,
    UnknownFunction = 6,
    QueueFull = 7,
    Stopping = 8,
    Refused = 9,  ///< the driver said no
    Threw = 10,
    Late = 11,  ///< done, after more than a millisecond
};

/// What the taps record, one operation for each thing that can happen: it gives each kind of record its form,
/// as StreamText reads it. Each operation writes one record as of the time given, allocates nothing and makes
/// no system call, and returns the record's number, or 0 when it was not recorded (StreamRing::write). A
/// driver is named by its number of KeyTable, 0 being the host. Owned by the host; any thread, tick() apart.
class StreamWriter {
public:
    using Duration = std::chrono::nanoseconds;

    /// Both outlive it.
    StreamWriter(StreamRing& ring, KeyTable& keys) : m_ring(ring), m_keys(keys) {}

    /// The key of a value or event: a number where it has one, else its text.
    struct Key {
        std::uint32_t number = 0;    ///< KeyTable::key
        std::string_view text = {};  ///< used where the lower half of the number is 0
    };

    std::uint64_t valueText(Time when, const Key& key, std::string_view value) noexcept;
    std::uint64_t valueFloat(Time when, const Key& key, float value) noexcept;
    std::uint64_t valueInt(Time when, const Key& key, std::int32_t value) noexcept;
    std::uint64_t valueBool(Time when, const Key& key, bool value) noexcept;
    std::uint64_t valueUnset(Time when, const Key& key) noexcept;
    std::uint64_t event(Time when, const Key& key, std::string_view value) noexcept;
    /// A driver's values hold no longer.
    std::uint64_t stale(Time when, std::uint16_t driver, std::uint32_t values,
                        std::string_view cause) noexcept;

    struct Fid {
        std::uint16_t sender = 0;
        std::uint16_t receiver = 0;  ///< 0: none is known
        EOrigin origin = EOrigin::Driver;
        EFidOutcome outcome = EFidOutcome::Begins;
        std::string_view who = {};  ///< user or session, at most 255 bytes; empty for drivers
        /// As in its message after the code (FidFields). Secrets are masked already.
        std::string_view fields = {};
    };
    std::uint64_t fid(Time when, const Fid& fid) noexcept;
    /// How the FID of that record ended, where that is worth a second one. It is of the sender's share: who
    /// sends what fails does not use up the receiver's.
    std::uint64_t fidEnd(Time when, std::uint16_t sender, std::uint16_t receiver, std::uint64_t begin,
                         EFidOutcome outcome, Duration took, std::string_view text) noexcept;

    std::uint64_t command(Time when, std::uint16_t driver, EOrigin origin, std::string_view who,
                          std::string_view line) noexcept;
    std::uint64_t commandEnd(Time when, std::uint16_t driver, std::uint64_t begin, bool ok, Duration took,
                             std::string_view text) noexcept;

    /// The process is 0 for a driver in the host's process.
    std::uint64_t start(Time when, std::uint16_t driver, std::uint32_t process,
                        std::string_view text) noexcept;
    /// The status is as waitpid has it; 0 for a driver in the host's process.
    std::uint64_t exit(Time when, std::uint16_t driver, std::uint32_t status,
                       std::string_view cause) noexcept;
    std::uint64_t hang(Time when, std::uint16_t driver, std::string_view text) noexcept;
    std::uint64_t restart(Time when, std::uint16_t driver, std::string_view text) noexcept;
    /// A configuration call into a driver has returned.
    std::uint64_t configuration(Time when, std::uint16_t driver, bool ok, Duration took,
                                std::string_view operation) noexcept;

    std::uint64_t log(Time when, std::uint16_t driver, std::uint32_t level, std::string_view output,
                      std::string_view text) noexcept;
    /// A line of a driver process's standard error.
    std::uint64_t output(Time when, std::uint16_t driver, std::string_view line) noexcept;
    std::uint64_t merged(Time when, std::uint16_t driver, std::uint64_t received, std::uint64_t merged,
                         std::uint64_t delivered) noexcept;
    std::uint64_t mark(Time when, EOrigin origin, std::string_view who, std::string_view text) noexcept;
    /// A message in a queue: from the driver's process, or to it, and whether it could be written.
    std::uint64_t wire(Time when, std::uint16_t driver, bool isFromDriver, bool ok,
                       std::string_view bytes) noexcept;

    /// Once a second says how many records there are by driver and kind, and once in a quarter of a lap what
    /// the numbers mean. To be called every 10 to 100 ms, by one thread.
    void tick(Time now);

    /// In a record of counts: those that were refused since the driver had had its share.
    static constexpr std::uint64_t s_refusedKind = 63;

private:
    std::uint64_t value(Time when, EKind kind, const Key& key, std::uint32_t bits,
                        std::string_view text) noexcept;
    void sayCounts(Time now);

    StreamRing& m_ring;
    KeyTable& m_keys;
    Time m_counted;
    std::array<std::uint64_t, 1024> m_totals{};  ///< by driver, as last said
};

}  // namespace stream
