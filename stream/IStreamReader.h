#pragma once

#include <chrono>
#include <cstdint>

#include "KeyNames.h"
#include "StreamCursor.h"
#include "StreamRecord.h"

namespace stream {

/// Records that a reader was not given.
struct StreamGap {
    enum class EReason {
        Lapped,   ///< the writers came round before they were read
        Missing,  ///< never written, or not within 100 ms: their writer was killed, or its place was lapped
        Damaged,  ///< there, and not whole
    };

    EReason reason = EReason::Missing;
    std::uint64_t first = 0;  ///< the first number that is missing; 0: not known
    std::uint64_t next = 0;   ///< the number of the record after it
    Time from;                ///< when the record before it was; 1970: there was none
    Time to;                  ///< when the record after it was
    /// How many there were; 0: not known, as in a single ring, where numbers are missing anyway.
    std::uint64_t count = 0;

    bool operator==(const StreamGap&) const = default;
};

/// Gives what happened, one record after another, and says where some are missing. One thread at a time.
class IStreamReader {
public:
    using Clock = std::chrono::steady_clock;
    enum class EResult {
        Record,   ///< record() is the next one
        Gap,      ///< gap() says what is missing before the next one
        Nothing,  ///< no more for now: ask again some 10 ms later
        End,      ///< no more will come
    };

    virtual ~IStreamReader() = default;

    /// The next of them; never waits. The time is only needed to know how long something has been missing.
    virtual EResult next(Clock::time_point now) = 0;
    /// Valid until the next call.
    virtual const StreamRecord& record() const = 0;
    virtual const StreamGap& gap() const = 0;
    /// What the numbers in it mean.
    virtual const KeyNames& names() const = 0;
    /// Where the next call goes on.
    virtual StreamCursor cursor() const = 0;
};

}  // namespace stream
