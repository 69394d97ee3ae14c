#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <queue>
#include <string>
#include <vector>

#include "IStreamReader.h"
#include "RingCursor.h"
#include "StreamSource.h"

namespace stream {

/// Reads rings: those of this process or another one while they are written, or what a dead one left. From
/// both rings it gives each record once, in the order of the numbers; from one of them in the order of their
/// places, which differs only where two threads wrote at once. It costs the writers nothing. A reader that is
/// too slow is told what it missed. Owned by whoever reads; any number of them, each on one thread.
class StreamReader final : public IStreamReader {
public:
    /// The source outlives it. Null, and why, when the place is none of this stream. Without names it looks
    /// for the definitions in the ring, which takes some ms.
    static std::unique_ptr<StreamReader> open(const StreamSource& source, const StreamCursor& from,
                                              std::string& error,
                                              std::optional<KeyNames> names = std::nullopt);

    /// Begins with about so many bytes of the newest records of the audit ring, without the values of that
    /// time; then both. What is left out before that is told as a gap, too.
    static std::unique_ptr<StreamReader> openNewest(const StreamSource& source, std::uint64_t auditBytes,
                                                    KeyNames names);

    EResult next(Clock::time_point now) override;
    const StreamRecord& record() const override { return m_record; }
    const StreamGap& gap() const override { return m_gap; }
    const KeyNames& names() const override { return m_names; }
    StreamCursor cursor() const override;

    /// How many records it was not given so far, as far as they can be counted.
    std::uint64_t missed() const { return m_missed; }
    /// Whether it is waiting for a record that is being written, or should be.
    bool isWaiting() const { return m_isWaiting; }
    /// Whether one of the rings was lapped and has nothing of what comes next: what the other one has is
    /// given with a gap before nearly each record.
    bool isInLappedStretch() const { return m_expected < m_wholeFrom; }

private:
    struct ByNumber {
        bool operator()(const StreamRecord& left, const StreamRecord& right) const {
            return left.number > right.number;
        }
    };
    /// More than there are threads that write at once: only so many records can lie before one with a lower
    /// number.
    static constexpr std::size_t s_farthest = 1024;

    StreamReader(const StreamSource& source, const StreamCursor& from, KeyNames names);

    void learnNames();
    EResult nextOfBoth(Clock::time_point now);
    EResult nextOfOne(Clock::time_point now);
    enum class EFetched { Due, Some, None };
    /// Takes one record of each ring of which none waits for its turn, or of all: into m_record when it is
    /// the one that is due, else into m_pending.
    EFetched fetch(Clock::time_point now, bool ofAll);
    void keep();
    void takePending();
    void lapped(ERing ring);
    EResult deliver();
    EResult deliverGap(const StreamRecord& next);
    EResult idle() const { return m_source.isLive() ? EResult::Nothing : EResult::End; }

    const StreamSource& m_source;
    const std::optional<ERing> m_ring;
    std::vector<RingCursor> m_cursors;
    KeyNames m_names;
    StreamRecord m_record;
    StreamGap m_gap;
    /// Read before their turn.
    std::priority_queue<StreamRecord, std::vector<StreamRecord>, ByNumber> m_pending;
    std::array<std::size_t, s_rings> m_pendingOf{};
    std::uint64_t m_expected = 0;  ///< the next number; 0: whichever comes
    std::uint64_t m_begin = 0;     ///< where it began, as a number
    bool m_isFromNewest = false;
    std::uint64_t m_learnedAt = 0;
    std::uint64_t m_missed = 0;
    Time m_last;
    std::uint64_t m_wholeFrom = 0;               ///< of both: below it one of them has lost its part
    std::array<bool, s_rings> m_isRingLapped{};  ///< its first record has not come yet
    bool m_isLapped = false;                     ///< of one ring
    bool m_isWaiting = false;
    bool m_isGapTold = false;  ///< of one ring: the next record comes after a gap that was told
};

}  // namespace stream
