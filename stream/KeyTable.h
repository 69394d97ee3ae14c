#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "KeyNames.h"
#include "StreamRecord.h"

namespace stream {

class StreamRing;

/// Gives drivers and the texts of each driver numbers, for records to name them by, and says in the stream
/// what each number means. A number means the same as long as the stream lasts. What defines all numbers
/// takes at most a sixteenth of the audit ring, what defines one driver's a 32nd of that: none takes
/// another's room. Owned by the host; any thread. Who records something often asks once and keeps the number.
class KeyTable {
public:
    /// The ring outlives it.
    explicit KeyTable(StreamRing& ring);

    /// The driver's number, from 1 on; a new one is defined in the stream before it is returned. Where all
    /// are used up, the last one, which all further drivers share.
    std::uint16_t driver(std::string_view driverID, Time now);
    /// The driver's number where it has one, else 0.
    std::uint16_t known(std::string_view driverID) const;
    /// The number of a text of that driver, for StreamEntry::key: the driver's number is in its upper half.
    /// The lower half is 0 where the driver's share is used up or the text is empty or of more than 255
    /// bytes: the text goes into the record then.
    std::uint32_t key(std::uint16_t driver, std::string_view text, Time now);

    /// Says all definitions again when a quarter of a lap has passed since, so that each is in the ring at
    /// any time. To be called several times a second, by one thread.
    void sayAgain(Time now);

    /// The numbers below it are those of drivers; 0 is the host.
    std::uint16_t drivers() const;
    /// All that is defined by now.
    KeyNames names() const;
    /// Whether the driver's share is used up.
    bool isFull(std::uint16_t driver) const;

    /// What all drivers share that come when there are no more numbers.
    static constexpr std::uint16_t s_lastDriver = 1023;
    static constexpr std::size_t s_longestText = 255;

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };
    struct Driver {
        std::unordered_map<std::string, std::uint32_t, Hash, std::equal_to<>> keys;
        std::size_t bytes = 0;  ///< of the records that define them
        std::uint32_t last = 0;
        bool isFull = false;  ///< a text got no number, and none will get one any more
    };
    struct Definition {
        std::uint32_t key;
        std::string text;
    };
    /// How many are said again under one lock.
    static constexpr std::size_t s_batch = 256;

    void define(std::uint32_t key, std::string_view text, Time now);

    StreamRing& m_ring;
    const std::size_t m_most;          ///< bytes for all
    const std::size_t m_mostOfDriver;  ///< bytes for one
    mutable std::shared_mutex m_mutex;
    std::unordered_map<std::string, std::uint16_t, Hash, std::equal_to<>> m_numbers;
    std::vector<Driver> m_drivers;  ///< by number; the first is the host
    std::vector<Definition> m_definitions;
    std::size_t m_bytes = 0;
    std::uint64_t m_saidAt = 0;  ///< the head then; of the thread that says them again
};

}  // namespace stream
