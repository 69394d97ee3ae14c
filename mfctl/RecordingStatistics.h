#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "IStreamReader.h"
#include "Screen.h"

/// How much a recording has: records by driver and kind, the time that they cover, what is missing. One
/// thread.
class RecordingStatistics {
public:
    /// The reader's last answer was a record of interest.
    void addRecord(const stream::IStreamReader& reader);
    void addGap(const stream::StreamGap& gap);

    void print(const Screen& screen) const;
    nlohmann::json json() const;

    std::uint64_t records() const { return m_records; }
    /// Of the first and the last record, by their times; 1970 where there is none.
    stream::Time from() const { return m_from; }
    stream::Time to() const { return m_to; }

private:
    std::map<std::pair<std::string, std::string>, std::uint64_t> m_counts;  ///< driver, kind
    std::uint64_t m_records = 0;
    std::uint64_t m_gaps = 0;
    std::uint64_t m_missing = 0;
    stream::Time m_from;
    stream::Time m_to;
};
