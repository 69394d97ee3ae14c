#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "RecordingSearch.h"
#include "Screen.h"
#include "StreamRecord.h"

/// What there is of recordings at a place: the rings, the segments of each host's life, black boxes, what was
/// kept. One thread.
class RecordingList {
public:
    /// Reads them; a file that is no recording is listed with its fault. Throws a ControlError where the
    /// place cannot be read.
    static RecordingList of(const RecordingPlace& place);

    void print(const Screen& screen) const;
    nlohmann::json json() const;

    /// In a directory of segments, what has the last minute before the end of a driver, and what was put
    /// aside.
    static constexpr const char* s_blackBoxes = "blackbox";
    static constexpr const char* s_kept = "kept";

private:
    struct Row {
        std::string what;
        std::string path;
        std::string fault;  ///< why it cannot be read; empty where it can
        std::uint64_t records = 0;
        std::uint64_t bytes = 0;
        stream::Time from;
        stream::Time to;
    };

    void addRing(const std::string& path);
    void addSegments(const std::string& directory);
    void addBoxes(const std::string& directory, const char* pName, const char* pWhat);
    static void measure(Row& row);

    std::vector<Row> m_rows;
};
