#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "StreamEntry.h"
#include "StreamLayout.h"
#include "StreamRecord.h"
#include "UniqueFd.h"

namespace stream {

/// The two rings that every tap writes into, in memory that other processes may read, and that outlives this
/// one where it is a file. Writing never waits, allocates nothing and makes no system call; who reads is not
/// known here. Owned by the host; write() and the counters on any thread.
class StreamRing {
public:
    struct Settings {
        /// The file, on a file system in memory; its directory is there. Empty: memory without a name.
        std::string path;
        /// Multiples of 4096, at least 64 KiB.
        std::array<std::size_t, s_rings> sizes{std::size_t{16} << 20, std::size_t{48} << 20};
        /// Another one at each start; 1 to 32 of 0-9, a-z, A-Z and "-".
        std::string instance;
        /// Where a driver would push out what is younger, it has a quarter of a lap at most.
        std::chrono::nanoseconds youth = std::chrono::seconds(60);
    };

    /// How many numbers of drivers there are, 0 being the host.
    static constexpr std::size_t s_drivers = 1024;
    static constexpr std::size_t s_smallest = 64u << 10;

    /// All memory is had, or there is no ring: null, and the error names the file and says what would be
    /// right. A file of that name is replaced once the new one is complete; who has it open keeps it.
    /// PATH.lock says that a process writes the file: a second one is refused.
    static std::unique_ptr<StreamRing> create(const Settings& settings, Time now, std::string& error);
    /// The file stays.
    ~StreamRing();
    StreamRing(const StreamRing&) = delete;
    StreamRing& operator=(const StreamRing&) = delete;

    /// Makes the next megabyte ready, so that no writer has to wait for the kernel there. True when all is.
    /// One thread, beside the writers.
    bool makeReady() noexcept;

    /// Records it as of that time. Its number; 0 when it is not recorded, which is counted: its driver has
    /// had its share of the audit ring, or its place was lapped while it was written.
    std::uint64_t write(Time when, const StreamEntry& entry) noexcept;

    /// Whether the driver has had its share of events, FIDs, lines and the like at that time, but for a few
    /// bytes: who asks first need not make the record, and tells how many there were.
    bool isSpent(std::uint16_t driver, Time when) noexcept;
    void addRefused(std::uint16_t driver, std::uint64_t records) noexcept;

    /// How many records of that kind of the driver there are; those that were dropped are none.
    std::uint64_t count(std::uint16_t driver, EKind kind) const;
    /// How many of the driver were not recorded since it had had its share.
    std::uint64_t refused(std::uint16_t driver) const;
    /// How many were dropped since their places were lapped.
    std::uint64_t dropped() const;
    std::uint64_t lastNumber() const;
    /// Where the next record of that ring goes.
    std::uint64_t head(ERing ring) const;

    const std::string& instance() const { return m_instance; }
    std::size_t size(ERing ring) const { return m_sizes[static_cast<std::size_t>(ring)]; }
    /// For StreamSource: the file as it is in memory.
    std::byte* base() const { return m_pBase; }
    std::size_t fileSize() const { return m_fileSize; }

    /// What a file of rings of these sizes takes.
    static std::size_t fileSizeOf(const std::array<std::size_t, s_rings>& sizes);

private:
    /// What the writers of one driver share.
    struct DriverPart {
        /// Has gone on eight times as far as the driver's records are long. As long as it is less than a lap
        /// before the head, the driver has had less than a quarter of any lap.
        std::atomic<std::uint64_t> share{0};
        std::atomic<std::uint64_t> refused{0};
        std::array<std::atomic<std::uint64_t>, s_kinds> counts{};
    };
    /// Of the audit ring, in positions: a lap has at most half as many.
    static constexpr std::size_t s_sectors = 128;

    StreamRing(const Settings& settings, Time now, base::UniqueFd lock, std::byte* pBase);

    StreamHeader& header() const { return *reinterpret_cast<StreamHeader*>(m_pBase); }
    std::uint64_t* words(ERing ring) const { return m_pWords[static_cast<std::size_t>(ring)]; }
    bool takeShare(DriverPart& driver, std::size_t size, Time when) noexcept;
    bool isOldestYoung(std::uint64_t head, Time when) noexcept;
    void enterSectors(std::uint64_t position, std::size_t size, Time when) noexcept;
    std::atomic<std::int64_t>& entered(std::uint64_t position) noexcept {
        return m_entered[(position >> m_sectorShift) % s_sectors];
    }
    DriverPart& part(std::uint32_t key) const;

    const std::string m_instance;
    const std::array<std::size_t, s_rings> m_sizes;
    const std::chrono::nanoseconds m_youth;
    const std::size_t m_fileSize;
    std::size_t m_ready = 0;  ///< bytes from the beginning
    const base::UniqueFd m_lock;
    std::byte* const m_pBase;
    std::array<std::uint64_t*, s_rings> m_pWords{};
    std::uint32_t m_salt = 0;
    unsigned int m_sectorShift = 0;
    /// When writers came into each sector of the last lap.
    std::array<std::atomic<std::int64_t>, s_sectors> m_entered{};
    std::unique_ptr<DriverPart[]> m_pDrivers;
};

}  // namespace stream
