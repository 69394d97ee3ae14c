#pragma once

#include <bitset>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "KeyNames.h"
#include "StreamRecord.h"

namespace stream {

/// What of a stream somebody wants to see. What is about the stream itself is seen only by its kind's name.
/// One thread.
class StreamFilter {
public:
    /// Everything.
    StreamFilter();

    /// Names of kinds with commas between ("fid,exit"); "fid" and "command" take their ends along. Empty on
    /// success, else which word is no kind and which there are.
    std::string setKinds(std::string_view kinds);
    /// IDs of drivers, or shell patterns for them, with commas between; a FID is its sender's and its
    /// receiver's. "host" is the host.
    void setDrivers(std::string_view drivers);
    /// A shell pattern for what a record is about: the name of a value or event, the function of a FID, the
    /// text of a line or command.
    void setGlob(std::string glob) { m_glob = std::move(glob); }

    bool matches(const StreamRecord& record, const KeyNames& names) const;

private:
    bool matchesDriver(const StreamRecord& record, const KeyNames& names) const;
    bool isWanted(const std::string& driver) const;

    std::bitset<256> m_kinds;
    std::vector<std::string> m_drivers;
    std::string m_glob;
};

}  // namespace stream
