#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "RecordedPast.h"
#include "StreamRecord.h"

class JsonText;

/// What a value was in a span of time, out of the records of that time: its changes, so few of them that they
/// can be drawn, the last of them each with the FIDs that were sent to its driver right before, and when it
/// was stale. Owned by whoever answers; one thread.
class ValueHistory {
public:
    using Time = stream::Time;

    static constexpr std::size_t s_usualPoints = 600;
    static constexpr std::size_t s_leastPoints = 3;
    static constexpr std::size_t s_mostPoints = 10'000;
    /// Of the changes that are told one by one.
    static constexpr std::size_t s_lastChanges = 20;
    /// A FID that was sent longer before a change is not told with it.
    static constexpr std::chrono::seconds s_before{2};
    /// FIDs that are told with a change, the last ones.
    static constexpr std::size_t s_mostBefore = 5;

    /// At most so many points are told. Of numbers, where there are more changes, the lowest, the highest and
    /// the last of each step of the span; of everything else the last ones.
    ValueHistory(std::string key, const RecordedPast::Span& span, std::size_t points);

    /// As RecordedPast::Take.
    void take(const stream::StreamRecord& record, const stream::KeyNames& names, bool isAnew);
    /// How many changes there were in the span.
    std::uint64_t changes() const { return m_changes; }
    /// Whether anything was found of it, in the span or before.
    bool isKnown() const { return m_changes > 0 || m_held.has_value(); }

    /// The members "key" to "gaps" of the answer. isLive: the value holds now, whatever a record says.
    void write(JsonText& json, const std::vector<RecordedPast::Hole>& holes, bool isLive);

private:
    struct Sample {
        Time time;
        std::uint64_t number = 0;
        stream::EKind kind = stream::EKind::None;
        std::uint32_t value = 0;
        std::string text;
    };
    struct Step {
        std::optional<Sample> low;
        std::optional<Sample> high;
        std::optional<Sample> last;
    };
    struct Fid {
        stream::StreamRecord record;
        std::string sender;
    };
    using Fids = std::vector<std::shared_ptr<const Fid>>;
    struct Change {
        Sample sample;
        Fids before;  ///< the nearest first
    };
    struct Stale {
        Time from;
        Time to;
        std::string cause;
    };

    void takeFid(const stream::StreamRecord& record, const stream::KeyNames& names);
    void takeValue(const stream::StreamRecord& record);
    void addNumber(Sample sample);
    void addToStep(Sample sample);
    Fids fidsBefore(Time time) const;
    void endStale(Time to);
    std::vector<Sample> points() const;
    void writeChange(JsonText& json, const Change& change) const;
    void writeGaps(JsonText& json, const std::vector<RecordedPast::Hole>& holes) const;

    const std::string m_key;
    const std::string m_driverID;
    const RecordedPast::Span m_span;
    const std::size_t m_most;
    std::optional<Sample> m_held;  ///< the last change before the span
    std::vector<Sample> m_numbers;
    std::vector<Step> m_steps;  ///< instead of the numbers, where these are too many
    std::deque<Sample> m_others;
    std::uint64_t m_changes = 0;
    bool m_isOtherLeftOut = false;
    std::deque<Change> m_last;
    std::deque<std::shared_ptr<const Fid>> m_fids;  ///< to its driver, of the last seconds
    Time m_seen;                                    ///< of the last record
    std::optional<Stale> m_stale;                   ///< going on
    std::deque<Stale> m_staleTimes;
};
