#pragma once

#include <chrono>
#include <cstdint>

#include "StreamSource.h"

namespace stream {

/// Goes along one ring, from record to record, past what is not there. Owned by StreamReader; one thread.
class RingCursor {
public:
    enum class EStep {
        Record,  ///< the next one, and the cursor is past it
        Empty,   ///< nothing has been reserved beyond it
        Wait,    ///< somebody may still be writing there
        Passed,  ///< it went past places where nothing came; there may be more
        Lapped,  ///< writers have come round; it went on to what is there
    };
    using Clock = std::chrono::steady_clock;

    /// How long a reserved place is waited for.
    static constexpr std::chrono::milliseconds s_patience{100};

    /// The source outlives it. At the position a record begins, or will.
    RingCursor(const StreamSource& source, ERing ring, std::uint64_t position)
        : m_source(source), m_ring(ring), m_position(position) {}
    /// At the oldest record that is there.
    RingCursor(const StreamSource& source, ERing ring, Clock::duration patience = s_patience);

    /// At the first record of the newest that take about so many bytes.
    static RingCursor ofNewest(const StreamSource& source, ERing ring, std::uint64_t bytes);
    /// Somewhat before the first record with that number or a higher one, found without reading all of them.
    static RingCursor before(const StreamSource& source, ERing ring, std::uint64_t number);

    EStep step(StreamRecord& record, Clock::time_point now);
    std::uint64_t position() const { return m_position; }
    ERing ring() const { return m_ring; }
    bool isAtHole() const { return m_isAtHole; }

private:
    void goTo(std::uint64_t position) {
        m_position = position;
        m_isAdrift = true;
    }
    /// The oldest place that writers have not come to again.
    std::uint64_t oldest() const;
    /// Goes to the first record from the position on, at most to the end. Only the position of a record, or
    /// of the head at some time, is one where a record may begin.
    void seek(std::uint64_t end);

    const StreamSource& m_source;
    const ERing m_ring;
    const Clock::duration m_patience = s_patience;
    std::uint64_t m_position;
    bool m_isAtHole = false;
    bool m_isAdrift = false;  ///< no record need begin at the position
    Clock::time_point m_holeSince;
    std::uint64_t m_headThen = 0;  ///< what lies before it has been reserved since before m_holeSince
};

}  // namespace stream
