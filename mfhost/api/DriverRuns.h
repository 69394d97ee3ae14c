#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "LifeStep.h"
#include "RecordedPast.h"

class JsonText;

/// A driver's life, from what the table of drivers remembers and, of the time before that, from what was
/// recorded. Owned by whoever answers; one thread.
class DriverRuns {
public:
    static constexpr std::size_t s_usual = 100;
    static constexpr std::size_t s_most = 1000;

    /// What the table remembers, oldest first, of which the last ones are told, as of the rest.
    DriverRuns(std::string driverID, std::vector<LifeStep> remembered, std::size_t most);

    /// Before which time the recording is to be asked; nothing where the table has enough. hostStarted: since
    /// when the table remembers.
    std::optional<stream::Time> missingBefore(std::chrono::system_clock::time_point hostStarted) const;
    /// As RecordedPast::Take, of that time.
    void take(const stream::StreamRecord& record, const stream::KeyNames& names, bool isAnew);

    /// The members "driver", "more", "steps", newest first, and "gaps" of the answer.
    void write(JsonText& json, const std::vector<RecordedPast::Hole>& holes) const;

private:
    struct Step {
        stream::Time time;
        const char* step = nullptr;
        int pid = 0;
        std::uint64_t start = 0;
        std::string text;
    };

    void add(std::deque<Step>& steps, Step step);

    const std::string m_driverID;
    const std::size_t m_most;
    const bool m_isFull;  ///< the table may have forgotten some
    std::deque<Step> m_remembered;
    std::deque<Step> m_recorded;
    bool m_isMore = false;
};
