#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "IStreamReader.h"
#include "JoinedGaps.h"
#include "SegmentReader.h"
#include "StreamSource.h"

namespace stream {

/// Reads all that there is of a recording, up to now: the segments, then from the rings what they have in
/// full. What stands in both is given once, from the rings. Reading a place where a host is just writing
/// waits for it, a fifth of a second at most. One thread.
class PastReader final : public IStreamReader {
public:
    /// Records of both times and between.
    struct Bounds {
        Time from = Time::min();
        Time to = Time::max();
    };
    struct Parts {
        std::size_t segments = 0;  ///< how many there are, oldest first
        /// Opens the one of that place among them; null for one that is passed over. What it throws comes out
        /// of the reader's constructor and of next().
        std::function<std::unique_ptr<SegmentReader>(std::size_t index)> openSegment;
        const StreamSource* pRings = nullptr;  ///< outlives it; null for none
        /// What the numbers in the rings mean. Without them it looks for the definitions, which takes some
        /// ms.
        std::optional<KeyNames> names = {};
    };

    /// A std::runtime_error says that the rings cannot be read from where the segments end.
    PastReader(Parts parts, const Bounds& bounds);

    /// A record, a gap, or the end.
    EResult next(Clock::time_point now) override;
    const StreamRecord& record() const override { return m_pPart->record(); }
    const StreamGap& gap() const override { return m_pPart->gap(); }
    const KeyNames& names() const override { return m_pPart->names(); }
    StreamCursor cursor() const override { return m_pPart->cursor(); }

    /// Counts the segments and rings that it has begun to read: where it is another one, the records may be
    /// of another host.
    std::size_t part() const { return m_part; }

private:
    void placeRings();
    std::unique_ptr<StreamReader> openRingsAt(const StreamCursor& from) const;
    std::uint64_t wholeFrom() const;
    /// Goes on to the next part that has something within the bounds; false where there is none.
    bool openNext();
    std::unique_ptr<IStreamReader> openSegmentAt(std::size_t index);
    std::unique_ptr<IStreamReader> openRings();
    EResult step(Clock::time_point now);
    bool isWanted(EResult result) const;

    const Parts m_parts;
    const Bounds m_bounds;
    std::uint64_t m_ringFrom = 0;  ///< with this number the rings begin; 0: with the oldest
    std::uint64_t m_ringTo = 0;    ///< the last number when it was opened
    std::size_t m_ringAfter = 0;   ///< so many segments come before the rings
    std::size_t m_next = 0;        ///< segment
    std::size_t m_part = 0;
    bool m_areRingsRead = false;
    bool m_isRing = false;     ///< m_pPart reads the rings
    bool m_isOfRings = false;  ///< it reads a segment of the rings' host
    std::unique_ptr<IStreamReader> m_pPart;
};

}  // namespace stream
