#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KeptFrame.h"
#include "SegmentWriter.h"
#include "StreamReader.h"
#include "StreamRecord.h"
#include "StreamSource.h"

/// Keeps the stream beyond the rings: reads it and appends it to segments in a directory, NNNNNNNN.seg. What
/// a second brought is one frame, on the disk at its end; what ends a driver, is a verdict or a command is
/// there at once. Everything is kept but values: of each the last one of a frame. Nothing that the disk does
/// holds up the stream: what is lost meanwhile stands in the segments as a gap. Owned by the host; one
/// thread.
class Keeper {
public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::string directory;                        ///< made where it is missing, 0700
        std::size_t keep = std::size_t{1} << 30;      ///< bytes of all segments: the oldest go
        std::size_t segment = std::size_t{16} << 20;  ///< bytes of one
        /// Bytes of records, before they are packed. Beyond them only what no driver can cause at will is
        /// kept.
        std::size_t perSecond = std::size_t{2} << 20;
        unsigned int syncsPerSecond = 10;
    };
    /// Takes a line for the operator, without the end of line; true for one that says that all is well again.
    using Report = std::function<void(const std::string& line, bool isGoodNews)>;

    /// From the oldest record that the source still has; the source outlives it. Null, and why, when the
    /// directory cannot be had.
    static std::unique_ptr<Keeper> open(const Settings& settings, const stream::StreamSource& source,
                                        Report report, std::string& error);
    /// Writes into a segment of its own what a host that has ended has in its rings and in none of its
    /// segments, where that directory is still there. Before another host's keeper is opened, whose segments
    /// come after it; takes as long as the disk does.
    static void keepRest(const Settings& settings, const stream::StreamSource& source, const Report& report);

    /// Writes what there is.
    ~Keeper();
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

    /// Takes what has come since, and writes what is due. To be called every 10 ms.
    void step(Clock::time_point now);

    /// Records that stand in no segment but as the number of a gap: lapped before they were read, beyond the
    /// limit, or of a frame that the disk did not take. Values that were followed by newer ones are none.
    std::uint64_t lost() const { return m_lost; }

    /// Of these, lapped before they were read.
    std::uint64_t lapped() const { return m_lapped; }

    /// The segments of a directory, oldest first; none where it cannot be read.
    static std::vector<std::string> segments(const std::string& directory);

private:
    /// What a gap's record says of its reason, beside those of stream::StreamGap.
    static constexpr std::uint32_t s_limit = 3;
    static constexpr std::uint32_t s_disk = 4;

    static std::unique_ptr<Keeper> openAt(const Settings& settings, const stream::StreamSource& source,
                                          const stream::StreamCursor& from, Report report,
                                          std::string& error);
    Keeper(const Settings& settings, std::unique_ptr<stream::StreamReader> pReader, std::string instance,
           Report report, std::uint64_t nextFile);

    void take(const stream::StreamRecord& record, Clock::time_point now);
    void keep(const stream::StreamRecord& record, Clock::time_point now);
    void missed(const stream::StreamGap& gap, Clock::time_point now);
    stream::StreamRecord lostRecord(std::uint32_t reason, std::uint64_t first, std::uint64_t count) const;
    void writeFrame(Clock::time_point now);
    std::string append();
    std::string openSegment();
    void removeOldest();
    void tell(const std::string& fault);

    const Settings m_settings;
    const std::unique_ptr<stream::StreamReader> m_pReader;
    const std::string m_instance;
    const Report m_report;
    std::uint64_t m_nextFile;
    std::unique_ptr<stream::SegmentWriter> m_pSegment;

    KeptFrame m_frame;
    std::ptrdiff_t m_bytes = 0;  ///< of the second
    Clock::time_point m_second;
    Clock::time_point m_synced;
    bool m_isUrgent = false;
    std::uint64_t m_limited = 0;  ///< records beyond the limit since the last frame
    std::uint64_t m_firstLimited = 0;
    stream::Time m_last;
    std::uint64_t m_written = 0;  ///< the number of the last record that stands in a segment
    std::uint64_t m_lost = 0;
    std::uint64_t m_lapped = 0;
    std::string m_fault;  ///< why the disk takes nothing; told once
};
